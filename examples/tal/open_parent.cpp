#include "file_handle.h"

#ifdef __linux__
#include <sys/syscall.h>
#if defined(SYS_openat2) && __has_include(<linux/openat2.h>)
#define TAL_HAS_OPENAT2
#include <linux/openat2.h>
#endif
#endif

namespace Tal {
namespace {

constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

#ifdef TAL_HAS_OPENAT2
/// Opens a folder by one call of the system, which refuses a symbolic link in any component.
FileHandle OpenAtOnce(int top, const std::string& folder) {
  open_how how{};
  how.flags = kFlags;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  return FileHandle(static_cast<int>(syscall(SYS_openat2, top, folder.c_str(), &how, sizeof(how))));
}
#else
/// Always fails: this system has no such call.
FileHandle OpenAtOnce(int, const std::string&) { return FileHandle(-1); }
#endif

FileHandle OpenByComponents(int top, std::string folder, MissingFolders missing) {
  FileHandle at(fcntl(top, F_DUPFD_CLOEXEC, 0));
  while (at.IsOpen() && !folder.empty()) {
    const std::string name = folder.substr(0, folder.find('/'));
    folder.erase(0, name.size() + 1);
    if (missing == MissingFolders::Make) mkdirat(at.Get(), name.c_str(), 0777);
    at = FileHandle(openat(at.Get(), name.c_str(), kFlags));
  }
  return at;
}

}  // namespace

// Most folders exist and are opened by one call. The others, paths too long for one call, and
// systems without it take a call for each component.
OpenedParent OpenParent(int top, const std::string& path, MissingFolders missing) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {OpenByComponents(top, {}, missing), path};
  std::string folder = path.substr(0, slash);
  std::string name = path.substr(slash + 1);
  FileHandle at_once = OpenAtOnce(top, folder);
  if (at_once.IsOpen()) return {std::move(at_once), std::move(name)};
  return {OpenByComponents(top, std::move(folder), missing), std::move(name)};
}

}  // namespace Tal
