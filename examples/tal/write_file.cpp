#include "write_file.h"

#include "failure.h"
#include "terminal.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace Tal {

void WriteFile(const fs::path& path, const std::function<void(std::ostream&)>& write) {
  const std::string name = Printable(path.string());
  std::error_code error;
  const fs::file_type type = fs::status(path, error).type();
  if (type == fs::file_type::directory)
    throw Failure("cannot write \"" + name + "\": it is a folder");
  const bool is_file = type == fs::file_type::not_found || type == fs::file_type::regular;
  fs::path target = path;
  if (is_file) target += "." + std::to_string(getpid()) + ".part";
  try {
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    if (!out) throw Failure("cannot create \"" + name + "\": " + std::strerror(errno));
    write(out);
    out.close();
    if (!out) throw Failure("cannot write \"" + name + "\": " + std::strerror(errno));
    error.clear();
    if (is_file) fs::rename(target, path, error);
    if (error) throw Failure("cannot write \"" + name + "\": " + error.message());
  } catch (...) {
    if (is_file) fs::remove(target, error);
    throw;
  }
}

}  // namespace Tal
