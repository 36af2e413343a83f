#pragma once

#include <kit/store/object_store.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/head_table.h>
#include <stores/sqlite/internal/object_table.h>
#include <stores/sqlite/internal/pending_objects.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {

/// What an open `SqliteStore` is: the file, and the objects that were written and aren't in it yet.
/// The functions are those of the store.
class Document {
 public:
  Document(std::unique_ptr<Database> database, const SqliteOptions& options)
      : m_database(std::move(database)),
        m_objects(*m_database, options.compress),
        m_heads(*m_database),
        m_options(options) {}
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  ~Document() = default;

  Result<std::vector<Id>> Missing(std::span<const Id> ids);
  Status Read(std::span<const Id> ids, const ReadSink& sink);
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids);
  Status Write(std::span<const StoredObject> objects);
  Result<std::vector<Head>> Heads();
  Status MoveHeads(std::span<const HeadMove> moves);
  Status List(const IdSink& sink);
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark);
  Result<std::optional<std::string>> Value(std::string_view name);
  Status SetValue(std::string_view name, std::optional<std::string_view> value);
  Status Replace(std::span<const StoredObject> objects);
  void Trim() noexcept;
  Status CompactInto(const std::filesystem::path& target, const Progress& progress);
  /// Puts the pending objects into the file by a transaction of their own.
  Status WritePending();

 private:
  using Found = std::vector<std::pair<Id, Result<Buffer>>>;

  Result<bool> Has(const Id& id);
  Result<Buffer> ReadOne(const Id& id);
  Result<std::span<const Id>> ReadBatch(std::span<const Id> ids, Found& found);
  Status RelyOnObjects();
  Status CheckRemovals();
  Result<RemovedObjects> RemoveAllBut(std::span<const Id> marked);

  std::unique_ptr<Database> m_database;
  ObjectTable m_objects;
  HeadTable m_heads;
  PendingObjects m_pending;
  SqliteOptions m_options;
  // The number of removals at the first look or write since heads moved.
  std::optional<std::uint64_t> m_removalsSeen;
  // A move failed because of a removal: the next look or write begins a new save.
  bool m_isStale = false;
};

}  // namespace TalVcs::Kit::Sqlite
