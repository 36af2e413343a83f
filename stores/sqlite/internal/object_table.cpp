#include <kit/store/head_table.h>
#include <kit/text.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/object_table.h>

#include <algorithm>
#include <string>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::int64_t kListedAtOnce = 1024;

// Larger objects stay as they are: encoding needs all of their bytes a second time.
constexpr std::uint64_t kMostEncodedBytes = std::uint64_t{64} << 20;

/// The bytes of a buffer in one place.
class Joined {
 public:
  explicit Joined(const Buffer& buffer) {
    if (buffer.GetSegmentCount() == 1) {
      m_bytes = buffer.GetSegment(0);
    } else {
      m_copy = BytesFromBuffer(buffer);
      m_bytes = std::as_bytes(std::span(m_copy));
    }
  }
  Joined(const Joined&) = delete;
  Joined& operator=(const Joined&) = delete;

  std::span<const std::byte> Bytes() const noexcept { return m_bytes; }

 private:
  std::string m_copy;
  std::span<const std::byte> m_bytes;
};

}  // namespace

Result<bool> ObjectTable::Has(const ObjectKey& key) {
  return m_database.Use(Query::FindObject, Task::Read).Bind(1, key).Step();
}

Result<std::optional<std::uint64_t>> ObjectTable::SizeOf(const ObjectKey& key) {
  Statement row = m_database.Use(Query::SizeOfObject, Task::Read);
  Result<bool> found = row.Bind(1, key).Step();
  if (!found) return std::move(found).error();
  if (!*found) return std::optional<std::uint64_t>();
  const std::optional<std::int64_t> size = row.Number(0);
  if (!size || *size < 0) return m_rows.Damage(key);
  return std::optional(static_cast<std::uint64_t>(*size));
}

/// Returns 0 if there is no such object.
Result<std::int64_t> ObjectTable::NumberOf(const ObjectKey& key) {
  Statement row = m_database.Use(Query::FindObject, Task::Read);
  Result<bool> found = row.Bind(1, key).Step();
  if (!found) return std::move(found).error();
  return *found ? row.Number(0).value_or(0) : 0;
}

Result<Buffer> ObjectTable::Read(const ObjectKey& key) {
  Result<std::optional<ObjectRow>> row = m_rows.Find(key);
  if (!row) return std::move(row).error();
  if (!*row) return NoSuchObject(IdOf(key));
  return Decode(**row);
}

Result<Buffer> ObjectTable::Decode(const ObjectRow& row) {
  if (row.encoding == kPlainRow) return row.data;
  const Joined data(row.data);
  m_lastEncoding = row.encoding;
  Result<Buffer> packed = m_encoded.Decode(IdOf(row.key), data.Bytes(),
                                           [this](const Id& id) { return ReadEncoded(id); });
  if (!packed && packed.error().code == ErrorCode::Damaged) return m_rows.Damage(row.key);
  if (packed && packed->GetSize() != row.sizeBytes) return m_rows.Damage(row.key);
  return packed;
}

/// Finds a row by its number where that is known, which spares the look-up in the index.
Result<std::optional<ObjectRow>> ObjectTable::FindBase(const ObjectKey& key) {
  if (m_lastEncoding > 0) {
    Result<std::optional<ObjectRow>> row = m_rows.Find(m_lastEncoding);
    if (row && *row && (*row)->key == key) return row;
  }
  return m_rows.Find(key);
}

Result<std::vector<std::byte>> ObjectTable::ReadEncoded(const Id& id) {
  const std::optional<ObjectKey> key = KeyOf(id);
  if (!key) return NoSuchObject(id);
  Result<std::optional<ObjectRow>> row = FindBase(*key);
  if (!row) return std::move(row).error();
  if (!*row) return NoSuchObject(id);
  m_lastEncoding = (*row)->encoding;
  const Joined data((*row)->data);
  if ((*row)->encoding == kPlainRow) return EncodedFormOf(data.Bytes());
  return std::vector<std::byte>(data.Bytes().begin(), data.Bytes().end());
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

/// The row keeps its number, which differences have from it as their base.
Status ObjectTable::Replace(const PendingObjects::Entry& object) {
  // What depends on damaged bytes must not be remembered.
  m_encoded.Clear();
  Result<std::int64_t> number = NumberOf(object.key);
  if (!number) return std::move(number).error();
  ObjectRow row;
  Status status = Encode({object.key, object.packed, Id()}, row);
  m_encoded.Clear();
  if (status && *number > 0) status = m_rows.Remove(*number);
  row.number = *number;
  return status ? m_rows.Insert(row) : status;
}

Status ObjectTable::InsertOne(const PendingObjects::Entry& object) {
  ObjectRow row;
  Status status = Encode(object, row);
  return status ? m_rows.Insert(row) : status;
}

Status ObjectTable::InsertCopy(const ObjectRow& row) {
  if (row.encoding != kPlainRow) return m_rows.Insert(row);
  ObjectRow copy;
  Status status = Encode({row.key, row.data, Id()}, copy);
  copy.number = row.number;
  return status ? m_rows.Insert(copy) : status;
}

Status ObjectTable::Encode(const PendingObjects::Entry& object, ObjectRow& row) {
  row.key = object.key;
  row.sizeBytes = object.packed.GetSize();
  row.encoding = kPlainRow;
  row.data = object.packed;
  if (!m_compress || row.sizeBytes > kMostEncodedBytes) return {};
  m_lastEncoding = kPlainRow;
  const std::vector<std::byte> encoded =
      m_encoded.Encode({IdOf(object.key), object.packed, object.previous},
                       [this](const Id& id) { return ReadEncoded(id); });
  const Result<EncodedHeader> header = ReadEncodedHeader(encoded);
  // Plain bytes need no header in a row.
  if (!header || header->encoding == ObjectEncoding::Plain) return {};
  row.encoding = kCompressedRow;
  if (header->encoding == ObjectEncoding::Difference) {
    Result<std::int64_t> base = FindBaseRow(*header);
    if (!base) return std::move(base).error();
    if (*base <= 0) {
      // What the cache says of it has been removed, undone or encoded anew since.
      m_encoded.Clear();
      return Encode({object.key, object.packed, Id()}, row);
    }
    row.encoding = *base;
  }
  row.data = Buffer();
  row.data.Append(encoded.data(), encoded.size());
  return {};
}

/// Returns the number of the row of a difference's base, or 0 if it is no base for the difference:
/// if it isn't there, is damaged, or its own place is not below that of the difference. The cache
/// may know nothing of that, because other store objects, hosts and failures change rows too.
Result<std::int64_t> ObjectTable::FindBaseRow(const EncodedHeader& difference) {
  Result<std::optional<ObjectRow>> row = m_rows.Find(KeyOf(difference.base).value_or(ObjectKey()));
  if (!row && row.error().code == ErrorCode::Damaged) return 0;
  if (!row) return std::move(row).error();
  if (!*row) return 0;
  std::uint32_t position = 0;
  if ((*row)->encoding > 0) {
    const Joined data((*row)->data);
    const Result<EncodedHeader> header = ReadEncodedHeader(data.Bytes());
    if (!header) return 0;
    position = header->position;
  }
  return DepthOf(position) < DepthOf(difference.position) ? (*row)->number : 0;
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
  Result<Removal> removal = FindRemovals(kept);
  if (!removal) return std::move(removal).error();
  const std::vector<std::int64_t>& numbers = removal->numbers;
  for (const auto& [number, base] : removal->differences) {
    if (!std::binary_search(numbers.begin(), numbers.end(), base)) continue;
    if (Status status = EncodeWithoutBase(number); !status) return std::move(status).error();
  }
  for (const std::int64_t number : numbers) {
    if (Status status = m_rows.Remove(number); !status) return std::move(status).error();
  }
  if (!numbers.empty()) m_encoded.Clear();
  return removal->removed;
}

Result<ObjectTable::Removal> ObjectTable::FindRemovals(std::span<const ObjectKey> kept) {
  Removal removal;
  std::int64_t last = 0;
  Statement rows = m_database.Use(Query::ListObjects, Task::Save);
  for (;;) {
    Result<bool> row = rows.Step();
    if (!row) return std::move(row).error();
    if (!*row) return removal;
    const std::int64_t number = rows.Number(0).value_or(0);
    const std::int64_t encoding = rows.Number(3).value_or(0);
    // Pages that a damaged table has several times could make the list endless.
    if (number <= last) return m_database.Damage("the row of an object is damaged");
    last = number;
    const std::optional<ObjectKey> key = KeyOf(rows.Blob(1).value_or(std::span<const std::byte>()));
    if (key && std::binary_search(kept.begin(), kept.end(), *key)) {
      if (encoding > 0) removal.differences.emplace_back(number, encoding);
      continue;
    }
    removal.numbers.push_back(number);
    ++removal.removed.count;
    removal.removed.sizeBytes +=
        static_cast<std::uint64_t>(std::max<std::int64_t>(rows.Number(2).value_or(0), 0));
  }
}

Status ObjectTable::EncodeWithoutBase(std::int64_t number) {
  Result<std::optional<ObjectRow>> row = m_rows.Find(number);
  if (!row) return std::move(row).error();
  if (!*row) return m_database.Damage("the row of an object is damaged");
  Result<Buffer> packed = Decode(**row);
  if (!packed) return std::move(packed).error();
  ObjectRow changed;
  if (Status status = Encode({(*row)->key, *packed, Id()}, changed); !status) return status;
  changed.number = number;
  return m_rows.Update(changed);
}

}  // namespace TalVcs::Kit::Sqlite
