#include "paths.h"

#include <filesystem>

namespace Tal {

std::string NormalPath(const std::string& path) {
  std::string normal = std::filesystem::path(path).lexically_normal().generic_string();
  while (normal.ends_with('/')) normal.pop_back();
  return normal == "." ? "" : normal;
}

}  // namespace Tal
