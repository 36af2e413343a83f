#include "paths.h"

#include "failure.h"
#include "terminal.h"

#include <filesystem>

namespace Tal {

std::string NormalPath(const std::string& path) {
  if (path.starts_with('/')) {
    throw Failure(
        "\"" + Printable(path) + "\" is no path of the history: it must not begin with \"/\"",
        ExitCode::Usage);
  }
  std::string normal = std::filesystem::path(path).lexically_normal().generic_string();
  while (normal.ends_with('/')) normal.pop_back();
  return normal == "." ? "" : normal;
}

}  // namespace Tal
