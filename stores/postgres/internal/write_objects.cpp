#include <kit/store/head_table.h>
#include <stores/postgres/internal/big_endian.h>
#include <stores/postgres/internal/commit_links.h>
#include <stores/postgres/internal/object_table.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

// What goes into one round trip.
constexpr std::size_t kKeysAtOnce = 8192;
constexpr std::size_t kBytesAtOnce = std::size_t{16} << 20;

// A longer encoded form is kept in pieces, so that no row of the server is larger.
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

// Larger objects stay as they are: encoding needs all of their bytes a second time.
constexpr std::uint64_t kMostEncodedBytes = std::uint64_t{64} << 20;

// Fewer rows are inserted: a COPY takes three round trips more.
constexpr std::size_t kFewestCopied = 256;

// What a COPY sends at once.
constexpr std::size_t kCopiedAtOnce = std::size_t{1} << 16;

/// Returns the bytes of the key of an id; none without an id.
std::string BytesOf(const std::optional<Id>& id) {
  const std::optional<ObjectKey> key = id ? KeyOf(*id) : std::nullopt;
  return key ? std::string(key->begin(), key->end()) : std::string();
}

Status StatusOf(const Result<std::vector<Rows>>& rows) {
  return rows ? Status() : Status(rows.error());
}

std::string_view TextOf(const ObjectKey& key) noexcept {
  return {reinterpret_cast<const char*>(key.data()), key.size()};
}

std::string_view TextOf(std::span<const std::byte> bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// field := size bytes    size: four bytes, -1 for a null

void AppendField(std::string& out, std::string_view bytes) {
  AppendNumber(out, static_cast<std::uint32_t>(bytes.size()));
  out += bytes;
}

void AppendField(std::string& out, std::int64_t number) {
  AppendNumber(out, std::uint32_t{sizeof(number)});
  AppendNumber(out, number);
}

void AppendFieldOrNull(std::string& out, std::string_view bytes) {
  if (bytes.empty()) {
    AppendNumber(out, std::int32_t{-1});
  } else {
    AppendField(out, bytes);
  }
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
  std::vector<NewRow> rows;
  std::size_t size_bytes = 0;
  for (const StoredObject& object : objects) {
    NewRow row{*KeyOf(object.id), &object, {}};
    auto size = static_cast<std::size_t>(object.packed.GetSize());
    // No other can have an encoded form that is longer than a piece.
    if (size > kPieceBytes - kMostEncodedHeaderBytes) {
      row.encoded = Encode(object);
      size = row.encoded.size();
    }
    const bool is_large = size > kPieceBytes;
    if (is_large || rows.size() >= kKeysAtOnce || size_bytes + size > kBytesAtOnce) {
      if (Status status = WriteRows(rows, present); !status) return status;
      size_bytes = 0;
    }
    if (is_large) {
      Status status = WriteLarge(row.key, static_cast<std::int64_t>(object.packed.GetSize()),
                                 row.encoded, present);
      if (!status) return status;
      continue;
    }
    size_bytes += size;
    rows.push_back(std::move(row));
  }
  return WriteRows(rows, present);
}

/// Writes and empties the rows. They are put in the order of their ids, so that two writers don't
/// wait for each other in a circle. A COPY takes the server half of the time, but fails if one of
/// the objects is there.
Status ObjectTable::WriteRows(std::vector<NewRow>& rows, Present present) {
  if (rows.empty()) return {};
  std::stable_sort(rows.begin(), rows.end(),
                   [](const NewRow& a, const NewRow& b) { return a.key < b.key; });
  const auto last = std::unique(rows.begin(), rows.end(),
                                [](const NewRow& a, const NewRow& b) { return a.key == b.key; });
  rows.erase(last, rows.end());
  std::vector<ObjectKey> keys;
  for (const NewRow& row : rows) keys.push_back(row.key);
  bool may_copy = rows.size() >= kFewestCopied;
  Status status = m_session.Repeat<Status>(Task::Save, [&]() -> Status {
    const bool copies = std::exchange(may_copy, false);
    if (copies || HasLostConnection()) return WriteInSteps(rows, keys, present, copies);
    const Result<std::vector<Rows>> done = InsertRows(rows, BeginWrite(keys, present));
    if (!done) return done.error();
    Rely((*done)[1], keys);
    return {};
  });
  if (status) rows.clear();
  return status;
}

Status ObjectTable::WriteInSteps(std::span<const NewRow> rows, std::span<const ObjectKey> keys,
                                 Present present, bool may_copy) {
  Result<std::vector<Rows>> begun = m_session.Run(Task::Save, BeginWrite(keys, present));
  if (!begun) return std::move(begun).error();
  const Rows& counters = (*begun)[1];
  Status status = CheckUploads(CountersIn(counters));
  if (!status) return status;
  const std::int64_t epoch = m_lease.Epoch();
  const bool is_of_now = epoch < 0 || epoch == CountersIn(counters).epoch;
  const bool copies = may_copy && counters.Count() == 1 && is_of_now;
  status = copies ? CopyInto(rows, counters.Number(0, 2)) : StatusOf(InsertRows(rows, {}));
  if (status) Rely(counters, keys);
  return status;
}

/// Ends a transaction, whose lock on the repository keeps the pass from going on.
Status ObjectTable::CopyInto(std::span<const NewRow> rows, std::int64_t pass) {
  auto next = rows.begin();
  Status status = m_session.Copy(Task::Save, Sql::CopyObjects, [&](std::string& out) {
    for (; next != rows.end() && out.size() < kCopiedAtOnce; ++next) AppendRow(*next, pass, out);
    return next != rows.end();
  });
  if (!status) {
    // The next attempt skips what others have written since this save looked for it.
    if (m_session.State() == kUniqueViolation) m_session.AllowRepeat();
    return status;
  }
  return StatusOf(m_session.Run(Task::Save, {{Sql::Commit}}));
}

void ObjectTable::AppendRow(const NewRow& row, std::int64_t pass, std::string& out) {
  constexpr std::int64_t kNoPieces = 0;
  constexpr std::int16_t kFields = 8;
  const CommitLinks links = LinksOf(row.object->packed);
  AppendNumber(out, kFields);
  AppendField(out, m_session.RepositoryNumber());
  AppendField(out, TextOf(row.key));
  AppendField(out, pass);
  AppendField(out, static_cast<std::int64_t>(row.object->packed.GetSize()));
  AppendField(out, kNoPieces);
  if (row.encoded.empty()) {
    AppendField(out, TextOf(Encode(*row.object)));
  } else {
    AppendField(out, TextOf(row.encoded));
  }
  AppendFieldOrNull(out, BytesOf(links.parent));
  AppendFieldOrNull(out, BytesOf(links.root));
}

/// Ends a transaction that is open or that the calls begin. Returns the results of all.
Result<std::vector<Rows>> ObjectTable::InsertRows(std::span<const NewRow> rows,
                                                  std::vector<Call> calls) {
  calls.push_back({Sql::InsertObjects, ValuesOf(rows).Add(m_lease.Epoch())});
  calls.push_back({Sql::Commit});
  return m_session.Run(Task::Save, calls);
}

Parameters ObjectTable::ValuesOf(std::span<const NewRow> rows) {
  std::vector<ObjectKey> keys;
  std::vector<std::int64_t> sizes;
  std::vector<std::vector<std::byte>> data;
  std::vector<std::string> parents;
  std::vector<std::string> roots;
  for (const NewRow& row : rows) {
    const CommitLinks links = LinksOf(row.object->packed);
    keys.push_back(row.key);
    sizes.push_back(static_cast<std::int64_t>(row.object->packed.GetSize()));
    data.push_back(row.encoded.empty() ? Encode(*row.object) : row.encoded);
    parents.push_back(BytesOf(links.parent));
    roots.push_back(BytesOf(links.root));
  }
  return m_session.Number()
      .Add(std::span(std::as_const(keys)))
      .Add(std::span(std::as_const(sizes)))
      .Add(std::span(std::as_const(data)))
      .Add(std::span(std::as_const(parents)))
      .Add(std::span(std::as_const(roots)));
}

/// Returns how a transaction begins that puts objects. The second call returns the counters. New
/// objects are on the disk when a head moves, replaced ones at once.
std::vector<Call> ObjectTable::BeginWrite(std::span<const ObjectKey> keys, Present present) const {
  // Saving comes before inserting: otherwise an object could be removed in between.
  std::vector<Call> calls = {
      {Sql::Begin},
      {Sql::LockShared, m_session.Number()},
      {Sql::SaveCondemned, m_session.Number().Add(keys).Add(m_lease.Epoch())}};
  if (present == Present::Replace) {
    calls.push_back({Sql::DeletePieces, m_session.Number().Add(keys)});
    calls.push_back({Sql::DeleteObjects, m_session.Number().Add(keys)});
  } else {
    calls.push_back({Sql::CommitLater});
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
    Status status = CheckUploads(CountersIn((*rows)[1]));
    if (!status) return status;
    // No row comes back for an object that is there, which may be encoded otherwise.
    const bool is_new = rows->back().Count() == 1;
    if (is_new) status = WritePieces(key, encoded);
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
