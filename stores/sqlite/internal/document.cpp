#include <kit/store/head_table.h>
#include <kit/store/object_key.h>
#include <stores/sqlite/internal/checksum.h>
#include <stores/sqlite/internal/compaction.h>
#include <stores/sqlite/internal/document.h>
#include <stores/sqlite/internal/meta.h>
#include <stores/sqlite/internal/space.h>
#include <stores/sqlite/internal/transaction.h>
#include <stores/sqlite/internal/values.h>

#include <algorithm>
#include <limits>

namespace TalVcs::Kit::Sqlite {
namespace {

// A batch of reads ends at either of these, so that no lock is held while the caller's sink runs.
constexpr std::size_t kObjectsReadAtOnce = 256;
constexpr std::uint64_t kBytesReadAtOnce = std::uint64_t{1} << 20;

}  // namespace

/// Comes before the look itself: a removal in between is then noticed.
Status Document::RelyOnObjects() {
  if (m_removalsSeen && !m_isStale) return {};
  Result<std::uint64_t> removals = ReadMeta(*m_database, Meta::Removals);
  if (!removals) return std::move(removals).error();
  m_removalsSeen = *removals;
  m_isStale = false;
  return {};
}

/// Fails with `Busy` if objects that the save relies on may have been removed. What was written for
/// it may name them, so it must not get into the file: the next save would take it for whole.
Status Document::CheckRemovals() {
  if (!m_removalsSeen) return {};
  Result<std::uint64_t> removals = ReadMeta(*m_database, Meta::Removals);
  if (!removals) return std::move(removals).error();
  if (!m_isStale && *removals == *m_removalsSeen) return {};
  m_isStale = true;
  m_pending.Clear();
  return ObjectsWereRemoved();
}

Result<bool> Document::Has(const Id& id) {
  const std::optional<ObjectKey> key = KeyOf(id);
  if (!key) return false;
  return m_pending.Find(*key) ? Result<bool>(true) : m_objects.Has(*key);
}

Result<std::vector<Id>> Document::Missing(std::span<const Id> ids) {
  if (Status status = RelyOnObjects(); !status) return std::move(status).error();
  ReadTransaction transaction(*m_database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  std::vector<Id> missing;
  for (const Id& id : ids) {
    Result<bool> has = Has(id);
    if (!has) return std::move(has).error();
    if (!*has) missing.push_back(id);
  }
  return missing;
}

Result<Buffer> Document::ReadOne(const Id& id) {
  const std::optional<ObjectKey> key = KeyOf(id);
  if (!key) return NoSuchObject(id);
  const Buffer* pending = m_pending.Find(*key);
  return pending ? Result<Buffer>(*pending) : m_objects.Read(*key);
}

/// Reads the first of the ids and returns the others.
Result<std::span<const Id>> Document::ReadBatch(std::span<const Id> ids, Found& found) {
  ReadTransaction transaction(*m_database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  std::uint64_t size = 0;
  std::size_t count = 0;
  while (count < ids.size() && count < kObjectsReadAtOnce && size < kBytesReadAtOnce) {
    const Id& id = ids[count++];
    Result<Buffer> packed = ReadOne(id);
    if (!packed && packed.error().code == ErrorCode::Busy) return std::move(packed).error();
    if (packed) size += packed->GetSize();
    found.emplace_back(id, std::move(packed));
  }
  return ids.subspan(count);
}

Status Document::Read(std::span<const Id> ids, const ReadSink& sink) {
  while (!ids.empty()) {
    Found found;
    Result<std::span<const Id>> rest = ReadBatch(ids, found);
    for (auto& [id, packed] : found) sink(id, std::move(packed));
    if (!rest) return std::move(rest).error();
    ids = *rest;
  }
  return {};
}

Result<std::vector<std::optional<std::uint64_t>>> Document::Sizes(std::span<const Id> ids) {
  ReadTransaction transaction(*m_database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const std::optional<ObjectKey> key = KeyOf(id);
    const Buffer* pending = key ? m_pending.Find(*key) : nullptr;
    if (!key) {
      sizes.emplace_back();
    } else if (pending) {
      sizes.emplace_back(pending->GetSize());
    } else {
      Result<std::optional<std::uint64_t>> size = m_objects.SizeOf(*key);
      if (!size) return std::move(size).error();
      sizes.push_back(*size);
    }
  }
  return sizes;
}

Result<std::vector<Head>> Document::Heads() {
  ReadTransaction transaction(*m_database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  return m_heads.List();
}

Status Document::Write(std::span<const StoredObject> objects) {
  if (m_database->IsReadOnly()) {
    return m_database->Fail(ErrorCode::Denied, Task::Save, "it can only be read");
  }
  if (Status status = RelyOnObjects(); !status) return status;
  for (const StoredObject& object : objects) {
    const std::optional<ObjectKey> key = KeyOf(object.id);
    if (!key) return NotAnObjectId(object.id);
    m_pending.Add(*key, object.packed, object.previous);
    if (m_pending.SizeBytes() <= m_options.bufferSizeBytes) continue;
    if (Status status = WritePending(); !status) return status;
  }
  return {};
}

/// Can be repeated after any failure: objects that are in the file by now are skipped. Those of a
/// save that a removal has broken are dropped.
Status Document::WritePending() {
  if (m_pending.Entries().empty()) return {};
  WriteTransaction transaction(*m_database);
  Status status = transaction.Begin();
  if (!status) return status;
  status = CheckRemovals();
  if (status) status = m_objects.Insert(m_pending.Entries());
  if (status) status = transaction.Commit();
  if (status) m_pending.Clear();
  return status;
}

Status Document::MoveHeads(std::span<const HeadMove> moves) {
  WriteTransaction transaction(*m_database);
  Status status = transaction.Begin();
  if (status) status = m_heads.Check(moves);
  if (status) status = CheckRemovals();
  if (status) status = m_objects.Insert(m_pending.Entries());
  if (status) status = m_heads.Apply(moves);
  if (status) status = transaction.Commit();
  if (!status) return status;
  m_pending.Clear();
  m_removalsSeen.reset();
  return {};
}

Status Document::List(const IdSink& sink) {
  std::vector<Id> ids;
  for (const PendingObjects::Entry& entry : m_pending.Entries()) ids.push_back(IdOf(entry.key));
  std::int64_t number = std::numeric_limits<std::int64_t>::min();
  for (;;) {
    if (!ids.empty() && !sink(ids)) return {};
    ids.clear();
    std::vector<ObjectKey> keys;
    {
      ReadTransaction transaction(*m_database);
      Status status = transaction.Begin();
      if (status) status = m_objects.List(number, keys);
      if (!status) return status;
    }
    if (keys.empty()) return {};
    for (const ObjectKey& key : keys) {
      if (!m_pending.Find(key)) ids.push_back(IdOf(key));
    }
  }
}

Result<RemovedObjects> Document::RemoveUnmarked(const MarkObjects& mark) {
  WriteTransaction transaction(*m_database);
  Status status = transaction.Begin();
  if (status) status = m_objects.Insert(m_pending.Entries());
  if (!status) return std::move(status).error();
  Result<std::vector<Head>> heads = m_heads.List();
  if (!heads) return std::move(heads).error();
  const Result<std::vector<Id>> marked = mark(*heads);
  if (!marked) return marked.error();
  Result<RemovedObjects> removed = RemoveAllBut(*marked);
  if (!removed) return std::move(removed).error();
  status = transaction.Commit();
  if (!status) return std::move(status).error();
  m_pending.Clear();
  if (removed->count != 0) GiveBackPages(*m_database);
  return *removed;
}

Status Document::CompactInto(const std::filesystem::path& target, const Progress& progress) {
  if (!m_database->IsReadOnly()) {
    if (Status status = WritePending(); !status) return status;
  }
  return CopyDocument(*m_database, target, m_options, progress);
}

Result<RemovedObjects> Document::RemoveAllBut(std::span<const Id> marked) {
  std::vector<ObjectKey> kept;
  kept.reserve(marked.size());
  for (const Id& id : marked) {
    if (const std::optional<ObjectKey> key = KeyOf(id)) kept.push_back(*key);
  }
  std::sort(kept.begin(), kept.end());
  Result<RemovedObjects> removed = m_objects.RemoveAllBut(kept);
  if (!removed || removed->count == 0) return removed;
  Result<std::uint64_t> removals = ReadMeta(*m_database, Meta::Removals);
  if (!removals) return std::move(removals).error();
  Status status = WriteMeta(*m_database, Meta::Removals, *removals + 1);
  if (!status) return std::move(status).error();
  return removed;
}

Status Document::Replace(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  WriteTransaction transaction(*m_database);
  Status status = transaction.Begin();
  for (const StoredObject& object : objects) {
    if (status) status = m_objects.Replace({*KeyOf(object.id), object.packed, {}});
  }
  return status ? transaction.Commit() : status;
}

void Document::Trim() noexcept {
  m_objects.Trim();
  m_database->ReleaseMemory();
}

Result<std::optional<std::string>> Document::Value(std::string_view name) {
  ReadTransaction transaction(*m_database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  Statement row = m_database->Use(Query::Value, Task::Read);
  Result<bool> found = row.BindText(1, name).Step();
  if (!found) return std::move(found).error();
  if (!*found) return std::optional<std::string>();
  const std::optional<std::span<const std::byte>> value = row.Blob(0);
  const std::optional<std::int64_t> sum = row.Number(1);
  if (!value || !sum || static_cast<std::uint64_t>(*sum) != Checksum(name, *value)) {
    Error error = m_database->Damage("the value \"" + std::string(name) + "\" is damaged");
    error.subject = name;
    return error;
  }
  return std::optional(std::string(reinterpret_cast<const char*>(value->data()), value->size()));
}

Status Document::SetValue(std::string_view name, std::optional<std::string_view> value) {
  WriteTransaction transaction(*m_database);
  Status status = transaction.Begin();
  if (!status) return status;
  if (value) {
    status = PutValue(*m_database, name, std::as_bytes(std::span(*value)));
  } else {
    status = m_database->Use(Query::DeleteValue, Task::Save).BindText(1, name).Run();
  }
  return status ? transaction.Commit() : status;
}

}  // namespace TalVcs::Kit::Sqlite
