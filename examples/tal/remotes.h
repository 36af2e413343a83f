#pragma once

#include <kit/store/object_store.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Tal {

/// A store that other folders share a history through.
struct RemotePlace {
  std::string name;
  std::string place;  ///< a path, absolute, or "postgresql://..."
};

/// Returns the remotes of a store, in the order in which they were set.
std::vector<RemotePlace> ReadRemotes(const std::filesystem::path& storePath);
/// Writes them. Throws `Failure`.
void WriteRemotes(const std::filesystem::path& storePath, const std::vector<RemotePlace>& remotes);

/// Returns the remote of that name; the only one for an empty name. Throws `Failure`.
RemotePlace FindRemote(const std::filesystem::path& storePath, const std::string& name);

/// Returns a place as other folders find it: paths become absolute.
std::string CompletePlace(const std::string& place, const std::filesystem::path& start);

/// Opens the store at a place: a folder with a store, a SQLite file, or a repository on a
/// PostgreSQL server, whose name stands after "#" and is "main" without one. Throws `Failure`.
std::shared_ptr<TalVcs::Kit::IObjectStore> OpenPlace(const std::string& place);

/// Makes the store in the folder `top` a cache of a place, which from now on has the history.
void MakeLazy(const std::filesystem::path& top, const std::string& place);
/// Returns the place of a folder whose store is a cache; empty for another folder.
std::string LazyPlace(const std::filesystem::path& top);

/// Returns a place's store with a cache, which also opens if the place can't be reached. What isn't
/// part of the history, such as the name of the current branch, is in the cache alone.
std::shared_ptr<TalVcs::Kit::IObjectStore> OpenLazy(
    std::shared_ptr<TalVcs::Kit::IObjectStore> cache, const std::string& place);

}  // namespace Tal
