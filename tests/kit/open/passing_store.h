#pragma once

#include <kit/store/memory_object_store.h>

namespace TalVcs::Testing {

/// A store in memory whose operations can be overridden.
class PassingStore : public Kit::IObjectStore {
 public:
  PassingStore() = default;
  /// Begins with what another store has.
  explicit PassingStore(const Kit::MemoryObjectStore& store) : m_store(store) {}

  Kit::Result<std::vector<Id>> Missing(std::span<const Id> ids) override {
    return m_store.Missing(ids);
  }
  Kit::Status Read(std::span<const Id> ids, const Kit::ReadSink& sink) override {
    return m_store.Read(ids, sink);
  }
  Kit::Status ReadHistory(const Id& id, std::uint64_t most, const Kit::ReadSink& sink) override {
    return m_store.ReadHistory(id, most, sink);
  }
  Kit::Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override {
    return m_store.Sizes(ids);
  }
  Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
    return m_store.Write(objects);
  }
  Kit::Result<std::vector<Kit::Head>> Heads() override { return m_store.Heads(); }
  Kit::Status MoveHeads(std::span<const Kit::HeadMove> moves) override {
    return m_store.MoveHeads(moves);
  }
  Kit::Status List(const Kit::IdSink& sink) override { return m_store.List(sink); }
  Kit::Result<Kit::RemovedObjects> RemoveUnmarked(const Kit::MarkObjects& mark) override {
    return m_store.RemoveUnmarked(mark);
  }
  Kit::Result<std::optional<std::string>> Value(std::string_view name) override {
    return m_store.Value(name);
  }
  Kit::Status SetValue(std::string_view name, std::optional<std::string_view> value) override {
    return m_store.SetValue(name, value);
  }

 private:
  Kit::MemoryObjectStore m_store;
};

}  // namespace TalVcs::Testing
