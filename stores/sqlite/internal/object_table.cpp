#include <kit/text.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/object_table.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace TalVcs::Kit::Sqlite {
namespace {

// The packed form itself. Other numbers are for forms that take less space.
constexpr std::int64_t kPlainEncoding = 0;

constexpr std::int64_t kListedAtOnce = 1024;

Error NoSuchObject(const Id& id) {
  Error error;
  error.code = ErrorCode::NotFound;
  error.subject = ToUtf8(id.View());
  error.message = "the store has no object " + error.subject;
  return error;
}

}  // namespace

Error ObjectTable::Damage(const Id& id) const {
  Error error = m_database.Damage("the row of an object is damaged");
  error.subject = ToUtf8(id.View());
  return error;
}

Result<bool> ObjectTable::Has(const ObjectKey& key) {
  return m_database.Use(Query::HasObject, Task::Read).Bind(1, key).Step();
}

Result<std::optional<std::uint64_t>> ObjectTable::SizeOf(const ObjectKey& key) {
  Statement row = m_database.Use(Query::SizeOfObject, Task::Read);
  Result<bool> found = row.Bind(1, key).Step();
  if (!found) return std::move(found).error();
  if (!*found) return std::optional<std::uint64_t>();
  const std::optional<std::int64_t> size = row.Number(0);
  if (!size || *size < 0) return Damage(IdOf(key));
  return std::optional(static_cast<std::uint64_t>(*size));
}

Result<Buffer> ObjectTable::Read(const ObjectKey& key) {
  Statement row = m_database.Use(Query::ReadObject, Task::Read);
  Result<bool> found = row.Bind(1, key).Step();
  if (!found) return std::move(found).error();
  return *found ? BufferFrom(IdOf(key), row) : NoSuchObject(IdOf(key));
}

Result<Buffer> ObjectTable::BufferFrom(const Id& id, const Statement& row) {
  const std::optional<std::span<const std::byte>> bytes = row.Blob(2);
  if (!bytes || row.Number(1) != kPlainEncoding ||
      row.Number(0) != static_cast<std::int64_t>(bytes->size())) {
    return Damage(id);
  }
  if (bytes->empty()) return Buffer();
  std::byte* target = nullptr;
  Buffer buffer = Buffer::Allocate(bytes->size(), target);
  std::memcpy(target, bytes->data(), bytes->size());
  return buffer;
}

Status ObjectTable::Insert(std::span<const PendingObjects::Entry> objects) {
  for (const PendingObjects::Entry& object : objects) {
    Result<bool> found = Has(object.key);
    if (!found) return std::move(found).error();
    if (*found) continue;
    if (Status status = InsertOne(object); !status) return status;
  }
  return {};
}

Status ObjectTable::InsertOne(const PendingObjects::Entry& object) {
  std::string joined;
  std::span<const std::byte> bytes;
  if (object.packed.GetSegmentCount() == 1) {
    bytes = object.packed.GetSegment(0);
  } else {
    joined = BytesFromBuffer(object.packed);
    bytes = std::as_bytes(std::span(joined));
  }
  return m_database.Use(Query::InsertObject, Task::Save)
      .Bind(1, object.key)
      .Bind(2, static_cast<std::int64_t>(bytes.size()))
      .Bind(3, kPlainEncoding)
      .BindBlob(4, bytes)
      .Run();
}

Status ObjectTable::List(std::int64_t& number, std::vector<ObjectKey>& keys) {
  Statement rows = m_database.Use(Query::ListIds, Task::Read);
  rows.Bind(1, number).Bind(2, kListedAtOnce);
  for (;;) {
    Result<bool> row = rows.Step();
    if (!row) return std::move(row).error();
    if (!*row) return {};
    const std::optional<std::int64_t> next = rows.Number(0);
    const std::optional<ObjectKey> key = KeyOf(rows.Blob(1).value_or(std::span<const std::byte>()));
    // Numbers that don't ascend would let the listing go in a circle.
    if (!key || !next || *next <= number)
      return m_database.Damage("the row of an object is damaged");
    number = *next;
    keys.push_back(*key);
  }
}

Result<RemovedObjects> ObjectTable::RemoveAllBut(std::span<const ObjectKey> kept) {
  RemovedObjects removed;
  std::vector<std::int64_t> numbers;
  Statement rows = m_database.Use(Query::ListObjects, Task::Save);
  for (;;) {
    Result<bool> row = rows.Step();
    if (!row) return std::move(row).error();
    if (!*row) break;
    const std::optional<ObjectKey> key = KeyOf(rows.Blob(1).value_or(std::span<const std::byte>()));
    if (key && std::binary_search(kept.begin(), kept.end(), *key)) continue;
    numbers.push_back(rows.Number(0).value_or(0));
    ++removed.count;
    removed.sizeBytes +=
        static_cast<std::uint64_t>(std::max<std::int64_t>(rows.Number(2).value_or(0), 0));
  }
  Status status = Remove(numbers);
  if (!status) return std::move(status).error();
  return removed;
}

Status ObjectTable::Remove(std::span<const std::int64_t> numbers) {
  for (const std::int64_t number : numbers) {
    Status status = m_database.Use(Query::DeleteObject, Task::Save).Bind(1, number).Run();
    if (!status) return status;
  }
  return {};
}

}  // namespace TalVcs::Kit::Sqlite
