#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/store/background_writer.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Writes objects to a store in their order, in batches of a few megabytes. If the store implements
/// `IBackgroundWriter`, it writes a batch while the caller adds to the next one. The reporter
/// counts such a batch when the store has taken it.
class ObjectWriter {
 public:
  /// Both must outlive the writer.
  ObjectWriter(IObjectStore& store, Reporter& reporter) : m_store(store), m_reporter(reporter) {}
  ObjectWriter(const ObjectWriter&) = delete;
  ObjectWriter& operator=(const ObjectWriter&) = delete;
  /// Gives up what was begun and not finished, so that a cancelled operation ends soon and its
  /// failure isn't that of a later one.
  ~ObjectWriter() {
    if (m_isBegun) DropWrites(m_store);
  }

  /// Lets `WrittenIds` return the ids of what is written from here on.
  void KeepIds() noexcept { m_keepsIds = true; }

  Status Add(StoredObject object) {
    m_sizeBytes += object.packed.GetSize();
    m_objects.push_back(std::move(object));
    if (m_sizeBytes < kMostBytes && m_objects.size() < kMostObjects) return {};
    m_isBegun = true;
    std::vector<StoredObject> objects;
    objects.swap(m_objects);
    const std::uint64_t size_bytes = std::exchange(m_sizeBytes, 0);
    Note(objects, size_bytes);
    const std::size_t count = objects.size();
    Status status = BeginWrite(m_store, std::move(objects));
    return status ? m_reporter.Add(count, size_bytes) : status;
  }

  /// Writes what was added, and waits until the store has all of it.
  Status Flush() {
    // A write waits for those that were begun.
    Status status = m_objects.empty() ? FinishWrites(m_store) : m_store.Write(m_objects);
    if (!status) return status;
    m_isBegun = false;
    if (m_objects.empty()) return {};
    Note(m_objects, m_sizeBytes);
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

  void Note(const std::vector<StoredObject>& objects, std::uint64_t sizeBytes) {
    m_writtenObjects += objects.size();
    m_writtenBytes += sizeBytes;
    if (!m_keepsIds) return;
    for (const StoredObject& object : objects) m_writtenIds.push_back(*KeyOf(object.id));
  }

  IObjectStore& m_store;
  Reporter& m_reporter;
  std::vector<StoredObject> m_objects;
  std::uint64_t m_sizeBytes = 0;
  std::uint64_t m_writtenObjects = 0;
  std::uint64_t m_writtenBytes = 0;
  bool m_keepsIds = false;
  bool m_isBegun = false;
  std::vector<ObjectKey> m_writtenIds;
};

}  // namespace TalVcs::Kit
