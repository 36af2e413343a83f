#pragma once

#include <filesystem>
#include <system_error>

namespace TalVcs::Kit::Sqlite {

/// Gives a file another name in the same folder, in place of a file that has it. With `durable` the
/// name is on the medium then.
std::error_code MoveFile(const std::filesystem::path& from, const std::filesystem::path& to,
                         bool durable);

/// Gives `to` the permissions of `from`, as far as possible.
void CopyPermissions(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace TalVcs::Kit::Sqlite
