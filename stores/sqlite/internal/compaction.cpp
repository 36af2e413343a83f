#include <stores/sqlite/internal/compaction.h>
#include <stores/sqlite/internal/copy_file.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/files.h>
#include <stores/sqlite/internal/head_table.h>
#include <stores/sqlite/internal/log.h>
#include <stores/sqlite/internal/meta.h>
#include <stores/sqlite/internal/object_rows.h>
#include <stores/sqlite/internal/object_table.h>
#include <stores/sqlite/internal/transaction.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {
namespace {

// Each row of an object has its id.
constexpr std::int64_t kFewestRowBytes = 32;

Error Cancelled(const Database& source) {
  Error error = source.Fail(ErrorCode::Cancelled, Task::Save, "cancelled");
  error.message = "copying \"" + source.Name() + "\" was cancelled";
  return error;
}

/// Copies the content of one document into another, within transactions that are open.
class Copier {
 public:
  Copier(Database& source, Database& target, const SqliteOptions& options)
      : m_source(source),
        m_target(target),
        m_sourceObjects(source, options.compress),
        m_targetObjects(target, options.compress) {}

  Status Copy(const Progress& progress) {
    Status status = CopyObjects(progress);
    if (status) status = CopyHeads();
    if (status) status = CopyValues();
    if (!status) return status;
    Result<std::uint64_t> removals = ReadMeta(m_source, Meta::Removals);
    if (!removals) return std::move(removals).error();
    return WriteMeta(m_target, Meta::Removals, *removals);
  }

 private:
  Status CopyObjects(const Progress& progress) {
    Result<std::uint64_t> count = CountObjects();
    if (!count) return std::move(count).error();
    CopyProgress copied(progress, "copy", *count);
    if (!copied.Call()) return Cancelled(m_source);
    std::int64_t number = std::numeric_limits<std::int64_t>::min();
    for (;;) {
      std::vector<ObjectKey> keys;
      if (Status status = m_sourceObjects.List(number, keys); !status) return status;
      if (keys.empty()) break;
      for (const ObjectKey& key : keys) {
        Result<std::uint64_t> size = CopyObject(key);
        if (!size) return std::move(size).error();
        if (!copied.Add(*size)) return Cancelled(m_source);
      }
    }
    return copied.Call() ? Status() : Status(Cancelled(m_source));
  }

  /// Counts as many rows as the file has bytes for: pages that a damaged table has several times
  /// could make the count endless.
  Result<std::uint64_t> CountObjects() {
    Result<std::int64_t> pages = m_source.NumberOf(Query::CountPages, Task::Read);
    if (!pages) return std::move(pages).error();
    Result<std::int64_t> page_size = m_source.NumberOf(Query::PageSize, Task::Read);
    if (!page_size) return std::move(page_size).error();
    Statement count = m_source.Use(Query::CountObjects, Task::Read);
    Result<bool> row = count.Bind(1, *pages * *page_size / kFewestRowBytes).Step();
    if (!row) return std::move(row).error();
    return static_cast<std::uint64_t>(*row ? count.Number(0).value_or(0) : 0);
  }

  Result<std::uint64_t> CopyObject(const ObjectKey& key) {
    ObjectRows rows(m_source);
    Result<std::optional<ObjectRow>> row = rows.Find(key);
    if (!row) return std::move(row).error();
    if (!*row) return rows.Damage(key);
    Status status = m_targetObjects.InsertCopy(**row);
    if (!status) return std::move(status).error();
    return (*row)->sizeBytes;
  }

  Status CopyHeads() {
    const Result<std::vector<Head>> heads = HeadTable(m_source).List();
    if (!heads) return heads.error();
    std::vector<HeadMove> moves;
    for (const Head& head : *heads) moves.push_back({head.name, Id(), head.id});
    return HeadTable(m_target).Apply(moves);
  }

  Status CopyValues() {
    // Pages that a damaged table has several times could make the list endless.
    std::unordered_set<std::string> names;
    Statement values = m_source.Use(Query::ListValues, Task::Read);
    for (;;) {
      Result<bool> found = values.Step();
      if (!found) return std::move(found).error();
      if (!*found) return {};
      const std::optional<std::string_view> name = values.Text(0);
      const std::optional<std::span<const std::byte>> value = values.Blob(1);
      const std::optional<std::int64_t> sum = values.Number(2);
      if (!name || !value || !sum || !names.emplace(*name).second) {
        return m_source.Damage("the table of values is damaged");
      }
      Status status = m_target.Use(Query::SetValue, Task::Save)
                          .BindText(1, *name)
                          .BindBlob(2, *value)
                          .Bind(3, *sum)
                          .Run();
      if (!status) return status;
    }
  }

  Database& m_source;
  Database& m_target;
  ObjectTable m_sourceObjects;
  ObjectTable m_targetObjects;
};

Status FillCopy(const CopyFile& copy, Database& source, const SqliteOptions& options,
                const Progress& progress) {
  return copy.Make(
      options, [&](Database& target) { return Copier(source, target, options).Copy(progress); });
}

Status CheckMoved(const Database& source, const std::error_code& failure) {
  if (!failure) return {};
  Error error = source.Fail(ErrorCode::Unavailable, Task::Save, "its copy can't be renamed");
  error.cause = failure.message();
  return error;
}

/// The tables of others would be lost.
Status CheckNoOtherTables(Database& source) {
  Result<std::int64_t> tables = source.NumberOf(Query::CountTables, Task::Read);
  if (!tables) return std::move(tables).error();
  Result<std::int64_t> own = source.NumberOf(Query::CountOwnTables, Task::Read);
  if (!own) return std::move(own).error();
  if (*tables == *own) return {};
  return source.Fail(ErrorCode::Unsupported, Task::Save, "it has tables of other programs");
}

}  // namespace

Status CopyDocument(Database& source, const std::filesystem::path& target,
                    const SqliteOptions& options, const Progress& progress) {
  Status status = CheckFree(target);
  if (status) status = CheckNotItsCopy(source.Name(), target);
  if (!status) return status;
  ReadTransaction transaction(source);
  status = transaction.Begin();
  if (!status) return status;
  CopyFile copy(target);
  status = FillCopy(copy, source, options, progress);
  return status ? CheckMoved(source, copy.MoveToNew(target, options.durable)) : status;
}

Status CompactDocument(const std::filesystem::path& path, const SqliteOptions& options,
                       const Progress& progress) {
  std::error_code failure;
  // A link to the document stays.
  std::filesystem::path target = std::filesystem::canonical(path, failure);
  if (failure) target = path;
  SqliteOptions of_source = options;
  of_source.create = of_source.readOnly = false;
  of_source.journalMode = SqliteJournalMode::Rollback;
  Result<std::unique_ptr<Database>> source = Database::Open(target, of_source);
  if (!source) return std::move(source).error();
  LeaveLog(**source);
  (*source)->SetBusyTimeout(options.busyTimeout);
  Result<bool> has_log = HasLog(**source);
  if (!has_log) return std::move(has_log).error();
  if (*has_log) {
    return (*source)->Fail(ErrorCode::Busy, Task::Save, "another program is using it");
  }
  WriteTransaction transaction(**source);
  Status status = transaction.BeginOnAnySchema();
  if (status) status = CheckNoOtherTables(**source);
  if (!status) return status;
  const CopyFile copy(target);
  status = FillCopy(copy, **source, options, progress);
  if (!status) return status;
  CopyPermissions(target, copy.Path());
  return CheckMoved(**source, MoveFile(copy.Path(), target, options.durable));
}

}  // namespace TalVcs::Kit::Sqlite
