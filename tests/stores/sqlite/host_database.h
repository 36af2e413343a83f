#pragma once

#include <kit/store/object_store.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/stores/sqlite/raw_file.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {

/// A connection of a host, with a store attached to it.
class HostStore final : public Kit::IObjectStore {
 public:
  HostStore(const std::filesystem::path& path, const Kit::SqliteOptions& options)
      : m_file(path), m_store(Attach(m_file, options)) {}

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
  static Kit::SqliteStore Attach(RawFile& file, const Kit::SqliteOptions& options) {
    file.Execute("PRAGMA synchronous = OFF");
    return Kit::SqliteStore::Attach(file.Connection(), "history_", options).value();
  }

  RawFile m_file;
  Kit::SqliteStore m_store;
};

}  // namespace TalVcs::Testing
