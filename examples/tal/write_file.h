#pragma once

#include <filesystem>
#include <functional>
#include <ostream>

namespace Tal {

/// Writes a file whole or not at all: under another name first. A pipe or a device stays what it is
/// and gets the bytes. Throws `Failure`.
void WriteFile(const std::filesystem::path& path, const std::function<void(std::ostream&)>& write);

}  // namespace Tal
