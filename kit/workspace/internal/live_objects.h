#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/open/statistics.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// The files and folders of one version, which goes on to another version at the cost of what
/// differs between them.
class LiveObjects {
 public:
  /// Both must outlive the set, which is empty at first.
  LiveObjects(IObjectStore& store, Reporter& reporter) : m_store(store), m_reporter(reporter) {}

  /// Goes on to the files of a root; an empty id has none. Fails as the store does, and with
  /// `Cancelled`.
  Status MoveTo(const Id& root);

  /// Return the objects that the last move brought in and took out, as numbers that never change.
  const std::vector<std::uint32_t>& Gained() const noexcept { return m_gained; }
  const std::vector<std::uint32_t>& Lost() const noexcept { return m_lost; }
  /// Returns the objects that there are now.
  const ObjectTotals& Totals() const noexcept { return m_totals; }
  /// Returns how many objects there ever were; numbers are less.
  std::uint32_t CountEver() const noexcept { return static_cast<std::uint32_t>(m_objects.size()); }
  std::uint64_t SizeOf(std::uint32_t number) const { return m_objects[number].sizeBytes; }

 private:
  struct Object {
    std::uint64_t references = 0;
    std::uint64_t sizeBytes = 0;
    bool hasSize = false;
  };

  std::uint32_t NumberOf(const Id& id);
  Status Enter(const Id& root);
  Status EnterFolders(std::vector<Id>& folders, std::vector<Id>& files);
  Status ReadSizes(const std::vector<Id>& files);
  bool AddReference(std::uint32_t number);
  void Leave(std::uint32_t root);

  IObjectStore& m_store;
  Reporter& m_reporter;
  IdMap m_numbers;
  std::vector<Object> m_objects;
  std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> m_entries;  // of folders now
  std::vector<std::uint32_t> m_gained;
  std::vector<std::uint32_t> m_lost;
  ObjectTotals m_totals;
  Id m_root;
};

}  // namespace TalVcs::Kit
