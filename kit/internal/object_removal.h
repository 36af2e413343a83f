#pragma once

#include <kit/internal/stored_objects.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Removes objects from a store in a folder, and puts what remains together.
///
///     new packs  -  sync  -  journal that names them and the files to remove  -  sync
///     -  files go  -  sync  -  journal that names no file to remove
///
/// With the first journal all removed objects are gone at once, also for a process that comes after
/// this one was killed. Packs in which nothing is removed stay as they are, unless several are
/// small. Files of objects that fit in a pack are put there.
class ObjectRemoval {
 public:
  /// Works for the one writer, while nobody reads, on `objects`.
  explicit ObjectRemoval(StoredObjects& objects) : m_objects(objects) {}

  Result<RemovedObjects> Run(const std::set<ObjectKey>& kept);

  /// Removes the files that the journal says are none of an object.
  Status Finish();

 private:
  using Path = std::filesystem::path;

  Status Survey(const std::set<ObjectKey>& kept);
  void TakeRecord(const ScannedRecord& record, const PackPlace& place,
                  const std::set<ObjectKey>& kept);
  void TakeFile(const ObjectKey& key, bool complete, const Path& path,
                const std::set<ObjectKey>& kept);
  void ChoosePacks(const std::set<ObjectKey>& kept);
  bool NeedsNewPacks() const { return !m_rewritten.empty() || !m_filesToPack.empty(); }
  Status WriteNewPacks(const std::set<ObjectKey>& kept);
  Status CopyPack(std::uint32_t number, const std::set<ObjectKey>& kept);
  Status AddAnew(const ObjectKey& key, std::string_view record);
  Status Add(std::string_view record);
  Status EndPack();
  Status SwitchState();
  Status RemoveRest();

  StoredObjects& m_objects;
  RemovedObjects m_removed;
  std::map<ObjectKey, PackPlace> m_places;  // the record of each packed object
  struct Difference {
    std::uint32_t pack;
    ObjectKey base;
  };
  std::vector<Difference> m_differences;  // of kept objects
  std::set<ObjectKey> m_unusedFiles;
  std::vector<ObjectKey> m_filesToPack;
  std::vector<Path> m_otherFiles;  // incomplete ones, and those of packed objects
  std::set<std::uint32_t> m_rewritten;
  PackSizes m_newPacks;
  std::uint32_t m_number = 0;  // of the pack that is being written
  std::string m_bytes;
};

}  // namespace TalVcs::Kit
