#include <kit/text.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/object_table.h>

#include <algorithm>
#include <string>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::int64_t kListedAtOnce = 1024;

// A difference of a difference, and so on: more steps would save little space and cost time in
// every read.
constexpr std::uint32_t kMostSteps = 8;
// Larger objects stay as they are: encoding needs all of their bytes a second time.
constexpr std::uint64_t kMostEncodedBytes = std::uint64_t{64} << 20;

Error NoSuchObject(const Id& id) {
  Error error;
  error.code = ErrorCode::NotFound;
  error.subject = ToUtf8(id.View());
  error.message = "the store has no object " + error.subject;
  return error;
}

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

/// Returns how many differences there are from the row down to one without a base.
std::uint32_t DepthOf(const ObjectRow& row) {
  if (!row.IsDifference()) return 0;
  const Joined data(row.data);
  const Result<EncodedHeader> header = ReadEncodedHeader(data.Bytes());
  return header ? header->depth : kMostDifferences;
}

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

Result<Buffer> ObjectTable::Read(const ObjectKey& key) {
  if (const Buffer* recent = m_recent.Find(key)) {
    // It may have been removed since.
    Result<bool> has = Has(key);
    if (!has) return std::move(has).error();
    return *has ? Result<Buffer>(*recent) : NoSuchObject(IdOf(key));
  }
  Result<std::optional<ObjectRow>> row = m_rows.Find(key);
  if (!row) return std::move(row).error();
  if (!*row) return NoSuchObject(IdOf(key));
  return Decode(*std::move(*row));
}

/// Collects the rows from `row` down to one that has no base or is known, and decodes them upwards.
Result<Buffer> ObjectTable::Decode(ObjectRow row) {
  if (row.encoding == kPlainRow) return row.data;
  std::vector<ObjectRow> chain;
  chain.push_back(std::move(row));
  while (chain.back().IsDifference()) {
    const std::int64_t number = chain.back().encoding;
    if (chain.size() > kMostDifferences) return m_rows.Damage(chain.front().key);
    const Joined data(chain.back().data);
    const Result<EncodedHeader> header = ReadEncodedHeader(data.Bytes());
    const std::optional<ObjectKey> base = header ? KeyOf(header->base) : std::nullopt;
    if (!base) return m_rows.Damage(chain.front().key);
    if (const Buffer* recent = m_recent.Find(*base)) return DecodeChain(chain, *recent);
    Result<std::optional<ObjectRow>> next = m_rows.Find(number);
    if (!next) return std::move(next).error();
    if (!*next || (*next)->key != *base) return m_rows.Damage(chain.front().key);
    chain.push_back(*std::move(*next));
  }
  Buffer lowest;
  if (chain.back().encoding == kPlainRow) {
    lowest = chain.back().data;
    chain.pop_back();
  }
  return DecodeChain(chain, std::move(lowest));
}

Result<Buffer> ObjectTable::DecodeChain(std::vector<ObjectRow>& chain, Buffer packed) {
  const ObjectKey wanted = chain.front().key;
  for (; !chain.empty(); chain.pop_back()) {
    const ObjectRow& row = chain.back();
    const Joined data(row.data);
    Result<Buffer> decoded = m_decoder.Decode(data.Bytes(), &packed);
    if (!decoded && decoded.error().code == ErrorCode::Unsupported) return decoded;
    if (!decoded || decoded->GetSize() != row.sizeBytes) return m_rows.Damage(wanted);
    packed = *std::move(decoded);
    // What doesn't fit its id may come from damage, and other objects mustn't be decoded by it.
    if (packed.GetSize() <= RecentObjects::kLargest && KeyOf(Id(packed)) == row.key) {
      m_recent.Add(row.key, packed);
    }
  }
  return packed;
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
  ObjectRow row;
  row.key = object.key;
  Result<std::optional<std::pair<std::int64_t, EncodingBase>>> base = BaseFor(object);
  if (!base) return std::move(base).error();
  if (*base) {
    Encode(&(*base)->second, (*base)->first, object.packed, row);
  } else {
    Encode(nullptr, 0, object.packed, row);
  }
  if (Status status = m_rows.Insert(row); !status) return status;
  // A host may write bytes that don't fit their id.
  if (object.previous && KeyOf(Id(object.packed)) == object.key) {
    m_recent.Add(object.key, object.packed);
  }
  return {};
}

/// Returns the object's previous version with the number of its row, or nothing if the object is
/// better stored by itself. A previous version that is damaged is no reason to fail.
Result<std::optional<std::pair<std::int64_t, EncodingBase>>> ObjectTable::BaseFor(
    const PendingObjects::Entry& object) {
  using Found = std::optional<std::pair<std::int64_t, EncodingBase>>;
  if (!m_compress || !object.previous || object.packed.GetSize() > kMostEncodedBytes) {
    return Found();
  }
  Result<std::optional<ObjectRow>> row = m_rows.Find(*object.previous);
  if (!row && row.error().code != ErrorCode::Damaged) return std::move(row).error();
  if (!row || !*row || (*row)->sizeBytes > kMostEncodedBytes) return Found();
  const std::int64_t number = (*row)->number;
  const std::uint32_t depth = DepthOf(**row);
  if (number <= 0 || depth >= kMostSteps) return Found();
  const Buffer* recent = m_recent.Find(*object.previous);
  Result<Buffer> packed = recent ? Result<Buffer>(*recent) : Decode(*std::move(*row));
  if (!packed) {
    const ErrorCode code = packed.error().code;
    if (code == ErrorCode::Damaged || code == ErrorCode::Unsupported) return Found();
    return std::move(packed).error();
  }
  return Found(std::pair(number, EncodingBase{IdOf(*object.previous), *std::move(packed), depth}));
}

void ObjectTable::Encode(const EncodingBase* base, std::int64_t number, const Buffer& packed,
                         ObjectRow& row) {
  row.sizeBytes = packed.GetSize();
  row.encoding = kPlainRow;
  row.data = packed;
  if (!m_compress || packed.GetSize() > kMostEncodedBytes) return;
  const std::vector<std::byte> encoded = m_encoder.Encode(packed, base);
  const Result<EncodedHeader> header = ReadEncodedHeader(encoded);
  // Plain bytes need no header in a row.
  if (!header || header->encoding == ObjectEncoding::Plain) return;
  row.encoding = header->encoding == ObjectEncoding::Difference ? number : kCompressedRow;
  row.data = Buffer();
  row.data.Append(encoded.data(), encoded.size());
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
  return removal->removed;
}

Result<ObjectTable::Removal> ObjectTable::FindRemovals(std::span<const ObjectKey> kept) {
  Removal removal;
  Statement rows = m_database.Use(Query::ListObjects, Task::Save);
  for (;;) {
    Result<bool> row = rows.Step();
    if (!row) return std::move(row).error();
    if (!*row) return removal;
    const std::int64_t number = rows.Number(0).value_or(0);
    const std::int64_t encoding = rows.Number(3).value_or(0);
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
  ObjectRow changed;
  changed.number = number;
  changed.key = (*row)->key;
  Result<Buffer> packed = Decode(*std::move(*row));
  if (!packed) return std::move(packed).error();
  Encode(nullptr, 0, *packed, changed);
  return m_rows.Update(changed);
}

}  // namespace TalVcs::Kit::Sqlite
