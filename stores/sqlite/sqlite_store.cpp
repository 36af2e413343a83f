#include <kit/store/quietly.h>
#include <kit/store/read_history.h>
#include <stores/sqlite/internal/compaction.h>
#include <stores/sqlite/internal/document.h>
#include <stores/sqlite/internal/salvage.h>
#include <stores/sqlite/sqlite_store.h>

#include <utility>

namespace TalVcs::Kit {
namespace {

Error Closed() {
  Error error;
  error.code = ErrorCode::Unavailable;
  error.message = "the store is closed";
  return error;
}

}  // namespace

Result<SqliteStore> SqliteStore::Open(const std::filesystem::path& path, SqliteOptions options) {
  Result<std::unique_ptr<Sqlite::Database>> database = Sqlite::Database::Open(path, options);
  if (!database) return std::move(database).error();
  return SqliteStore(std::make_unique<Sqlite::Document>(*std::move(database), options));
}

Result<SqliteStore> SqliteStore::Attach(sqlite3* connection, std::string_view prefix,
                                        SqliteOptions options) {
  Result<std::unique_ptr<Sqlite::Database>> database =
      Sqlite::Database::Attach(connection, prefix, options);
  if (!database) return std::move(database).error();
  return SqliteStore(std::make_unique<Sqlite::Document>(*std::move(database), options));
}

SqliteStore::SqliteStore(std::unique_ptr<Sqlite::Document> document) noexcept
    : m_document(std::move(document)) {}
SqliteStore::SqliteStore(SqliteStore&& other) noexcept = default;
SqliteStore& SqliteStore::operator=(SqliteStore&& other) noexcept {
  // The other's file may be this one's, so it isn't closed before.
  const SqliteStore previous(std::move(*this));
  m_document = std::move(other.m_document);
  return *this;
}
SqliteStore::~SqliteStore() {
  Quietly([this] { [[maybe_unused]] const Status ignored = Close(); });
}

Status SqliteStore::Compact(const std::filesystem::path& path, SqliteOptions options,
                            const Progress& progress) {
  return Sqlite::CompactDocument(path, options, progress);
}

Status SqliteStore::CompactInto(const std::filesystem::path& target, const Progress& progress) {
  return m_document ? m_document->CompactInto(target, progress) : Closed();
}

Result<SqliteSalvage> SqliteStore::Salvage(const std::filesystem::path& path,
                                           const std::filesystem::path& target,
                                           SqliteOptions options, const Progress& progress) {
  return Sqlite::SalvageDocument(path, target, options, progress);
}

Status SqliteStore::Close() {
  if (!m_document) return {};
  Status status = m_document->WritePending();
  if (status) m_document.reset();
  return status;
}

Result<std::vector<Id>> SqliteStore::Missing(std::span<const Id> ids) {
  if (!m_document) return Closed();
  return m_document->Missing(ids);
}

Status SqliteStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  return m_document ? m_document->Read(ids, sink) : Closed();
}

Status SqliteStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> SqliteStore::Sizes(std::span<const Id> ids) {
  if (!m_document) return Closed();
  return m_document->Sizes(ids);
}

Status SqliteStore::Write(std::span<const StoredObject> objects) {
  return m_document ? m_document->Write(objects) : Closed();
}

Result<std::vector<Head>> SqliteStore::Heads() {
  if (!m_document) return Closed();
  return m_document->Heads();
}

Status SqliteStore::MoveHeads(std::span<const HeadMove> moves) {
  return m_document ? m_document->MoveHeads(moves) : Closed();
}

Status SqliteStore::List(const IdSink& sink) {
  return m_document ? m_document->List(sink) : Closed();
}

Result<RemovedObjects> SqliteStore::RemoveUnmarked(const MarkObjects& mark) {
  if (!m_document) return Closed();
  return m_document->RemoveUnmarked(mark);
}

Result<std::optional<std::string>> SqliteStore::Value(std::string_view name) {
  if (!m_document) return Closed();
  return m_document->Value(name);
}

Status SqliteStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  return m_document ? m_document->SetValue(name, value) : Closed();
}

Status SqliteStore::Replace(std::span<const StoredObject> objects) {
  return m_document ? m_document->Replace(objects) : Closed();
}

void SqliteStore::Trim() noexcept {
  if (m_document) m_document->Trim();
}

}  // namespace TalVcs::Kit
