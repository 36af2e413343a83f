#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Writes objects to a store in their order, in batches of a few megabytes.
class ObjectWriter {
 public:
  /// Both must outlive the writer.
  ObjectWriter(IObjectStore& store, Reporter& reporter) : m_store(store), m_reporter(reporter) {}

  /// Lets `WrittenIds` return the ids of what is written from here on.
  void KeepIds() noexcept { m_keepsIds = true; }

  Status Add(StoredObject object) {
    m_sizeBytes += object.packed.GetSize();
    m_objects.push_back(std::move(object));
    return m_sizeBytes < kMostBytes && m_objects.size() < kMostObjects ? Status() : Flush();
  }

  /// Writes what was added and isn't written yet.
  Status Flush() {
    if (m_objects.empty()) return {};
    Status status = m_store.Write(m_objects);
    if (!status) return status;
    m_writtenObjects += m_objects.size();
    m_writtenBytes += m_sizeBytes;
    for (const StoredObject& object : m_objects) {
      if (m_keepsIds) m_writtenIds.push_back(*KeyOf(object.id));
    }
    status = m_reporter.Add(m_objects.size(), m_sizeBytes);
    m_objects.clear();
    m_sizeBytes = 0;
    return status;
  }

  std::uint64_t WrittenObjects() const noexcept { return m_writtenObjects; }
  std::uint64_t WrittenBytes() const noexcept { return m_writtenBytes; }
  const std::vector<ObjectKey>& WrittenIds() const noexcept { return m_writtenIds; }

 private:
  static constexpr std::uint64_t kMostBytes = std::uint64_t{8} << 20;
  static constexpr std::size_t kMostObjects = 4096;

  IObjectStore& m_store;
  Reporter& m_reporter;
  std::vector<StoredObject> m_objects;
  std::uint64_t m_sizeBytes = 0;
  std::uint64_t m_writtenObjects = 0;
  std::uint64_t m_writtenBytes = 0;
  bool m_keepsIds = false;
  std::vector<ObjectKey> m_writtenIds;
};

}  // namespace TalVcs::Kit
