#pragma once

#include <kit/store/object_store.h>
#include <kit/text/progress.h>

#include <filesystem>
#include <memory>
#include <string>

namespace Tal {

/// Where a history lives: in files of the store's folder, or in one SQLite file there.
enum class StoreKind { Folder, Sqlite };

/// Returns the kind of that name, "folder" or "sqlite". Throws `Failure` with `Usage` for another
/// name, and for a kind that this build lacks.
StoreKind ParseStoreKind(const std::string& name);

/// Makes an empty store in the folder `top`. Throws `Failure` if there is one.
void CreateStore(const std::filesystem::path& top, StoreKind kind);

/// Opens the store in the folder `top`. Throws `Failure`.
std::shared_ptr<TalVcs::Kit::IObjectStore> OpenStore(const std::filesystem::path& top);

/// Opens a SQLite file with a history. Throws `Failure`.
std::shared_ptr<TalVcs::Kit::IObjectStore> OpenStoreFile(const std::filesystem::path& path);

/// Makes a store of its own at `path`, outside any folder under history: a folder with a store
/// inside, or a SQLite file. Throws `Failure` if there is something.
std::shared_ptr<TalVcs::Kit::IObjectStore> CreateStoreAt(const std::filesystem::path& path,
                                                         StoreKind kind);

/// Returns whether the store in the folder `top` is a SQLite file.
bool HasSqlite(const std::filesystem::path& top);

/// What the pages of a damaged SQLite file have, in a new one.
struct SalvagedFile {
  std::shared_ptr<TalVcs::Kit::IObjectStore> store;
  bool hasAllBranches = false;
};

/// Salvages the SQLite file in the folder `top` into a new one at `target`. Throws `Failure`, or
/// the error of the store.
SalvagedFile SalvageSqlite(const std::filesystem::path& top, const std::filesystem::path& target,
                           const TalVcs::Kit::Progress& progress);

/// Returns the text of a small file; empty if it can't be read.
std::string ReadSmallFile(const std::filesystem::path& path);

/// Writes the file at once: a reader sees the old text or the new one. Throws `Failure`.
void WriteSmallFile(const std::filesystem::path& path, const std::string& text);

}  // namespace Tal
