#pragma once

#include <kit/text/error.h>
#include <zip.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace TalVcs::Kit::Zip {

/// What was being done when it failed.
enum class Task { Open, Read, Save };

/// Returns the error of a task on the file at `path`, with a reason in words.
Error MakeError(ErrorCode code, Task task, const std::filesystem::path& path,
                const std::string& reason);
/// Returns the error of a task that the system refused.
Error SystemFailure(Task task, const std::filesystem::path& path, const std::error_code& error);
/// Returns the error of a task in which libzip failed. Throws `std::bad_alloc` if memory ran out.
Error LibraryFailure(Task task, const std::filesystem::path& path, zip_error_t* error);

/// Keeps an error of the system in an error of libzip.
void SetSystemError(zip_error_t& target, int code, const std::error_code& error);

}  // namespace TalVcs::Kit::Zip
