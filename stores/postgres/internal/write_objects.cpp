#include <kit/store/head_table.h>
#include <stores/postgres/internal/commit_links.h>
#include <stores/postgres/internal/object_table.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

// What goes into one round trip.
constexpr std::size_t kKeysAtOnce = 8192;
constexpr std::size_t kBytesAtOnce = std::size_t{8} << 20;

// A longer encoded form is kept in pieces, so that no row of the server is larger.
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

// Larger objects stay as they are: encoding needs all of their bytes a second time.
constexpr std::uint64_t kMostEncodedBytes = std::uint64_t{64} << 20;

/// Returns the bytes of the key of an id; none without an id.
std::string BytesOf(const std::optional<Id>& id) {
  const std::optional<ObjectKey> key = id ? KeyOf(*id) : std::nullopt;
  return key ? std::string(key->begin(), key->end()) : std::string();
}

}  // namespace

std::vector<std::byte> ObjectTable::Encode(const StoredObject& object) {
  if (!m_compress || object.packed.GetSize() > kMostEncodedBytes) {
    return ObjectEncoder::Plain(object.packed);
  }
  return m_encoder.Encode(object.packed);
}

Status ObjectTable::Write(std::span<const StoredObject> objects) {
  return Put(objects, Present::Keep);
}

Status ObjectTable::Replace(std::span<const StoredObject> objects) {
  return Put(objects, Present::Replace);
}

/// Transactions end in the order of the objects: an object must never be there without what it
/// names, which comes before it.
Status ObjectTable::Put(std::span<const StoredObject> objects, Present present) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  Batch batch;
  for (const StoredObject& object : objects) {
    const ObjectKey key = *KeyOf(object.id);
    std::vector<std::byte> encoded = Encode(object);
    const bool is_large = encoded.size() > kPieceBytes;
    const bool is_full =
        batch.keys.size() >= kKeysAtOnce || batch.sizeBytes + encoded.size() > kBytesAtOnce;
    if (is_large || is_full) {
      if (Status status = WriteBatch(batch, present); !status) return status;
    }
    const auto size_bytes = static_cast<std::int64_t>(object.packed.GetSize());
    if (is_large) {
      if (Status status = WriteLarge(key, size_bytes, encoded, present); !status) return status;
      continue;
    }
    batch.sizeBytes += encoded.size();
    batch.keys.push_back(key);
    batch.sizes.push_back(size_bytes);
    batch.data.push_back(std::move(encoded));
    const CommitLinks links = LinksOf(object.packed);
    batch.parents.push_back(BytesOf(links.parent));
    batch.roots.push_back(BytesOf(links.root));
  }
  return WriteBatch(batch, present);
}

/// Writes and empties the batch. The rows are in the order of their ids, so that two writers don't
/// wait for each other in a circle.
Status ObjectTable::WriteBatch(Batch& batch, Present present) {
  if (batch.keys.empty()) return {};
  std::vector<std::size_t> order(batch.keys.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return batch.keys[a] < batch.keys[b]; });
  Batch sorted;
  for (const std::size_t index : order) {
    if (!sorted.keys.empty() && sorted.keys.back() == batch.keys[index]) continue;
    sorted.keys.push_back(batch.keys[index]);
    sorted.sizes.push_back(batch.sizes[index]);
    sorted.data.push_back(std::move(batch.data[index]));
    sorted.parents.push_back(std::move(batch.parents[index]));
    sorted.roots.push_back(std::move(batch.roots[index]));
  }
  batch = Batch();
  const std::span<const ObjectKey> keys(sorted.keys);
  const Parameters values = m_session.Number()
                                .Add(keys)
                                .Add(std::span(std::as_const(sorted.sizes)))
                                .Add(std::span(std::as_const(sorted.data)))
                                .Add(std::span(std::as_const(sorted.parents)))
                                .Add(std::span(std::as_const(sorted.roots)));
  sorted.data.clear();
  return m_session.Repeat<Status>(Task::Save, [&]() -> Status {
    std::vector<Call> calls = BeginWrite(keys, present);
    calls.push_back({Sql::InsertObjects, Parameters(values).Add(m_lease.Epoch())});
    calls.push_back({Sql::Commit});
    Result<std::vector<Rows>> rows = m_session.Run(Task::Save, calls);
    if (!rows) return std::move(rows).error();
    Rely((*rows)[1], keys);
    return {};
  });
}

/// Returns how a transaction begins that puts objects. The second call returns the counters.
std::vector<Call> ObjectTable::BeginWrite(std::span<const ObjectKey> keys, Present present) const {
  // Saving comes before inserting: otherwise an object could be removed in between.
  std::vector<Call> calls = {
      {Sql::Begin},
      {Sql::LockShared, m_session.Number()},
      {Sql::SaveCondemned, m_session.Number().Add(keys).Add(m_lease.Epoch())}};
  if (present == Present::Replace) {
    calls.push_back({Sql::DeletePieces, m_session.Number().Add(keys)});
    calls.push_back({Sql::DeleteObjects, m_session.Number().Add(keys)});
  }
  return calls;
}

Status ObjectTable::WriteLarge(const ObjectKey& key, std::int64_t size_bytes,
                               std::span<const std::byte> encoded, Present present) {
  const auto pieces = static_cast<std::int64_t>((encoded.size() + kPieceBytes - 1) / kPieceBytes);
  const std::span<const ObjectKey> keys(&key, 1);
  return m_session.Repeat<Status>(Task::Save, [&]() -> Status {
    std::vector<Call> calls = BeginWrite(keys, present);
    calls.push_back({Sql::InsertLarge,
                     m_session.Number().Add(key).Add(size_bytes).Add(pieces).Add(m_lease.Epoch())});
    Result<std::vector<Rows>> rows = m_session.Run(Task::Save, calls);
    if (!rows) return std::move(rows).error();
    // No row comes back for an object that is there, which may be encoded otherwise.
    const bool is_new = rows->back().Count() == 1;
    Status status = is_new ? WritePieces(key, encoded) : Status();
    if (!status) return status;
    const Result<std::vector<Rows>> end = m_session.Run(Task::Save, {{Sql::Commit}});
    if (!end) return end.error();
    Rely((*rows)[1], keys);
    return {};
  });
}

Status ObjectTable::WritePieces(const ObjectKey& key, std::span<const std::byte> encoded) {
  for (std::int64_t piece = 0; !encoded.empty();) {
    std::vector<std::int64_t> numbers;
    std::vector<std::vector<std::byte>> data;
    for (std::size_t size = 0; !encoded.empty() && size < kBytesAtOnce; ++piece) {
      const std::size_t count = std::min(encoded.size(), kPieceBytes);
      numbers.push_back(piece);
      data.emplace_back(encoded.begin(), encoded.begin() + static_cast<std::ptrdiff_t>(count));
      encoded = encoded.subspan(count);
      size += count;
    }
    const Result<std::vector<Rows>> rows =
        m_session.Run(Task::Save, {{Sql::InsertPieces, m_session.Number()
                                                           .Add(key)
                                                           .Add(std::span(std::as_const(numbers)))
                                                           .Add(std::span(std::as_const(data)))}});
    if (!rows) return rows.error();
  }
  return {};
}

}  // namespace TalVcs::Kit::Postgres
