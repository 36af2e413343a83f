#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// An object store in memory.
///
/// A value: a copy is a store of its own that shares the bytes of the objects. Objects share the
/// bytes of the buffers that were written and that are read, so that nothing is copied. A
/// moved-from store is empty. No operation fails for want of anything but memory.
///
/// Threads: a store belongs to one thread at a time, even for reading.
class TALVCS_KIT_API MemoryObjectStore final : public IObjectStore, public IRepairableStore {
 public:
  MemoryObjectStore();
  MemoryObjectStore(const MemoryObjectStore& other);
  MemoryObjectStore(MemoryObjectStore&& other) noexcept;
  MemoryObjectStore& operator=(const MemoryObjectStore& other);
  MemoryObjectStore& operator=(MemoryObjectStore&& other) noexcept;
  ~MemoryObjectStore() override;

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;
  Status Replace(std::span<const StoredObject> objects) override;

  /// Number of objects.
  std::size_t GetCount() const noexcept;
  /// Number of bytes of all packed forms.
  std::uint64_t GetSizeInBytes() const noexcept;

 private:
  /// Whether the next move of heads relies on objects that were there or were written, whether any
  /// were removed since, and whether the caller knows that.
  enum class SaveState { None, ReliesOnObjects, LostObjects, KnowsLoss };

  TALVCS_KIT_NO_EXPORT void Rely() noexcept;

  std::unordered_map<Id, Buffer> m_objects;
  std::map<std::string, Id> m_heads;
  std::map<std::string, std::string, std::less<>> m_values;
  SaveState m_save = SaveState::None;
};

}  // namespace TalVcs::Kit
