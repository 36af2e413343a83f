#pragma once

#include <kit/internal/store_folder.h>
#include <kit/text/result.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// The files of the objects of an object store in a folder.
///
/// A file gets its name only after the medium has its bytes. So a name is enough to know that an
/// object is there, and what a killed process leaves has another name.
class ObjectFiles {
 public:
  using Path = StoreFolder::Path;
  using KeyedObject = std::pair<ObjectKey, Buffer>;
  /// Called for each file: the object it is of, whether it is complete, its path.
  using Visitor = std::function<void(const ObjectKey& key, bool complete, const Path& path)>;

  /// Works in `folder`, which outlives this object.
  explicit ObjectFiles(StoreFolder& folder) : m_folder(folder) {}

  /// Returns the size of the object's file, or nothing if there is none.
  Result<std::optional<std::uint64_t>> SizeOf(const ObjectKey& key);

  /// Returns the bytes of the object's file; the error is `NotFound` if there is none.
  Result<Buffer> Read(const ObjectKey& key);

  /// Writes the files of objects, in place of those that they have. One writer at a time.
  Status Write(std::span<const KeyedObject> objects);

  /// Waits until the medium has the names that `Write` gave, and has lost those that were removed.
  Status SyncNames();

  /// Visits all files of objects, complete or not.
  Status Visit(const Visitor& visit);

  /// Removes the file of an object.
  Status RemoveFileOf(const ObjectKey& key) { return Remove(m_folder.FileOf(key)); }
  /// Removes a file; one that is gone already is no failure.
  Status Remove(const Path& path);
  /// Removes the folders of objects that are empty.
  void RemoveEmptyFolders();

 private:
  bool WriteParked(const KeyedObject& object);
  bool SyncParked(std::span<const KeyedObject> objects);
  bool GiveNames(std::span<const KeyedObject> objects);

  StoreFolder& m_folder;
  std::set<Path> m_changedFolders;  // folders in which names have changed
};

}  // namespace TalVcs::Kit
