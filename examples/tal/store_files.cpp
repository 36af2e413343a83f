#include "store_files.h"

#include "failure.h"
#include "file_handle.h"
#include "folder.h"
#include "terminal.h"

#include <kit/store/directory_object_store.h>
#ifdef TAL_WITH_SQLITE
#include <stores/sqlite/sqlite_store.h>
#endif

#include <cerrno>
#include <fstream>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

using TalVcs::Kit::DirectoryObjectStore;
using TalVcs::Kit::ErrorCode;
using TalVcs::Kit::IObjectStore;

constexpr const char* kSqliteName = "history.sqlite";

// The index of ten million files takes less.
constexpr off_t kMostSmallBytes = off_t{1} << 30;

/// Returns the store of a result, or throws its error in the words of a command.
template <class Store>
std::shared_ptr<IObjectStore> Opened(TalVcs::Kit::Result<Store> store, const std::string& what,
                                     bool creates) {
  if (store) return std::make_shared<Store>(*std::move(store));
  const TalVcs::Kit::Error& error = store.error();
  const bool is_damaged =
      !creates && (error.code == ErrorCode::Damaged || error.code == ErrorCode::Unavailable);
  throw Failure(what + Printable(Describe(error)),
                is_damaged ? ExitCode::Damaged : ExitCode::Differs);
}

#ifdef TAL_WITH_SQLITE
std::shared_ptr<IObjectStore> OpenSqlite(const fs::path& path, bool creates,
                                         const std::string& what) {
  return Opened(TalVcs::Kit::SqliteStore::Open(path, {.create = creates}), what, creates);
}
#else
std::shared_ptr<IObjectStore> OpenSqlite(const fs::path&, bool, const std::string& what) {
  throw Failure(what + "this build has no store in a SQLite file", ExitCode::Usage);
}
#endif

bool HasFolderStore(const fs::path& top) {
  std::error_code error;
  return fs::exists(fs::symlink_status(top / Folder::kStoreName / "state", error));
}

}  // namespace

bool HasSqlite(const fs::path& top) {
  std::error_code error;
  return fs::exists(fs::symlink_status(top / Folder::kStoreName / kSqliteName, error));
}

StoreKind ParseStoreKind(const std::string& name) {
  if (name.empty() || name == "folder") return StoreKind::Folder;
  if (name == "sqlite") return StoreKind::Sqlite;
  throw Failure("there is no kind of store \"" + Printable(name) + "\"; use folder or sqlite",
                ExitCode::Usage);
}

void CreateStore(const fs::path& top, StoreKind kind) {
  const std::string what = "cannot create the store: ";
  if (HasSqlite(top) || HasFolderStore(top)) throw Failure(what + "the folder has one already");
  if (kind == StoreKind::Folder) {
    Opened(DirectoryObjectStore::Create(top), what, true);
    return;
  }
  std::error_code error;
  fs::create_directory(top / Folder::kStoreName, error);
  if (error) throw Failure(what + error.message());
  OpenSqlite(top / Folder::kStoreName / kSqliteName, true, what);
}

std::shared_ptr<IObjectStore> OpenStore(const fs::path& top) {
  const std::string what = "cannot open the store: ";
  if (HasSqlite(top)) return OpenSqlite(top / Folder::kStoreName / kSqliteName, false, what);
  if (!HasFolderStore(top))
    throw Failure("the store is damaged: it has no state; tal init creates a store",
                  ExitCode::Damaged);
  return Opened(DirectoryObjectStore::Open(top), what, false);
}

std::shared_ptr<IObjectStore> OpenStoreFile(const fs::path& path) {
  return OpenSqlite(path, false, "cannot open \"" + Printable(path.string()) + "\": ");
}

std::shared_ptr<IObjectStore> CreateStoreAt(const fs::path& path, StoreKind kind) {
  const std::string what = "cannot create the store \"" + Printable(path.string()) + "\": ";
  std::error_code error;
  if (fs::exists(fs::symlink_status(path, error)) && !fs::is_empty(path, error))
    throw Failure(what + "there is something of that name");
  if (kind == StoreKind::Sqlite) return OpenSqlite(path, true, what);
  return Opened(DirectoryObjectStore::Create(path), what, true);
}

SalvagedFile SalvageSqlite([[maybe_unused]] const fs::path& top, const fs::path& target,
                           [[maybe_unused]] const TalVcs::Kit::Progress& progress) {
  SalvagedFile salvaged;
#ifdef TAL_WITH_SQLITE
  const fs::path damaged = top / Folder::kStoreName / kSqliteName;
  salvaged.hasAllBranches =
      TalVcs::Kit::SqliteStore::Salvage(damaged, target, {.durable = false}, progress)
          .value()
          .hasAllHeads;
#endif
  salvaged.store = OpenStoreFile(target);
  return salvaged;
}

std::string ReadSmallFile(const fs::path& path) {
  const FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if (status.st_size > kMostSmallBytes) return {};
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = read(file.Get(), text.data() + size, text.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {};
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  text.resize(size);
  return text;
}

void WriteSmallFile(const fs::path& path, const std::string& text) {
  fs::path parked = path;
  parked += ".new";
  std::ofstream file(parked, std::ios::binary);
  file << text;
  file.close();
  std::error_code error;
  if (file) fs::rename(parked, path, error);
  if (!file || error) throw Failure("cannot write \"" + Printable(path.string()) + "\"");
}

}  // namespace Tal
