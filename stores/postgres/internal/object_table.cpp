#include <kit/store/head_table.h>
#include <stores/postgres/internal/commit_links.h>
#include <stores/postgres/internal/object_table.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

// What comes in one round trip.
constexpr std::size_t kKeysAtOnce = 8192;
constexpr std::int64_t kPiecesAtOnce = 16;

/// Returns the keys of those ids that are an object's, in order and each once.
std::vector<ObjectKey> KeysOf(std::span<const Id> ids) {
  std::vector<ObjectKey> keys;
  keys.reserve(ids.size());
  for (const Id& id : ids) {
    if (const std::optional<ObjectKey> key = KeyOf(id)) keys.push_back(*key);
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

/// Calls `act` with some of the keys after the others, until it fails.
template <class Act>
Status ForEachPart(std::span<const ObjectKey> keys, Act act) {
  Status status;
  while (status && !keys.empty()) {
    const std::size_t count = std::min(keys.size(), kKeysAtOnce);
    status = act(keys.first(count));
    keys = keys.subspan(count);
  }
  return status;
}

}  // namespace

void ObjectTable::Rely(const Rows& counters, std::span<const ObjectKey> written) {
  m_lease.Begin(CountersIn(counters), m_session.Connections());
  m_lease.AddWritten(written);
}

Status ObjectTable::FindMissing(std::span<const ObjectKey> keys, KeySet& missing) {
  return m_session.Repeat<Status>(Task::Read, [&]() -> Status {
    // The counters come first, so that a removal in between is noticed.
    Result<std::vector<Rows>> rows = m_session.Run(
        Task::Read,
        {{Sql::ReadState, m_session.Number()}, {Sql::FindMissing, m_session.Number().Add(keys)}});
    if (!rows) return std::move(rows).error();
    Rely((*rows)[0], {});
    const Rows& found = (*rows)[1];
    for (int row = 0; row < found.Count(); ++row) {
      if (const std::optional<ObjectKey> key = KeyOf(found.Bytes(row, 0))) missing.insert(*key);
    }
    return {};
  });
}

Result<std::vector<Id>> ObjectTable::Missing(std::span<const Id> ids) {
  KeySet missing;
  const std::vector<ObjectKey> keys = KeysOf(ids);
  const Status status = ForEachPart(
      keys, [&](std::span<const ObjectKey> part) { return FindMissing(part, missing); });
  if (!status) return status.error();
  for (const ObjectKey& key : keys) {
    if (!missing.contains(key)) m_lease.AddSkipped(key);
  }
  std::vector<Id> result;
  for (const Id& id : ids) {
    const std::optional<ObjectKey> key = KeyOf(id);
    if (!key || missing.contains(*key)) result.push_back(id);
  }
  return result;
}

Error ObjectTable::Damage(const ObjectKey& key) const {
  Error error = m_session.Damage();
  error.subject = ToUtf8(IdOf(key).View());
  return error;
}

Result<Buffer> ObjectTable::Decode(const ObjectKey& key, std::int64_t size_bytes,
                                   std::span<const std::byte> encoded) {
  Result<Buffer> packed = m_decoder.Decode(encoded);
  if (!packed && packed.error().code == ErrorCode::Unsupported) return packed;
  // This store writes no differences.
  if (!packed || packed->GetSize() != static_cast<std::uint64_t>(size_bytes)) return Damage(key);
  return packed;
}

Status ObjectTable::Read(std::span<const Id> ids, const ReadSink& sink) {
  for (const Id& id : ids) {
    if (!IsObjectId(id)) sink(id, NoSuchObject(id));
  }
  return ForEachPart(KeysOf(ids), [&](std::span<const ObjectKey> part) {
    KeySet wanted(part.begin(), part.end());
    // What was passed before a connection is lost isn't wanted any more.
    Status status =
        m_session.Repeat<Status>(Task::Read, [&] { return ReadOnce(part, wanted, sink); });
    if (!status) return status;
    for (const ObjectKey& key : part) {
      if (wanted.contains(key)) sink(IdOf(key), NoSuchObject(IdOf(key)));
    }
    return status;
  });
}

Status ObjectTable::ReadOnce(std::span<const ObjectKey> part, KeySet& wanted,
                             const ReadSink& sink) {
  // In their order, in which the server finds them faster.
  std::vector<ObjectKey> keys;
  std::copy_if(part.begin(), part.end(), std::back_inserter(keys),
               [&wanted](const ObjectKey& key) { return wanted.contains(key); });
  std::vector<Large> large;
  const Call call{Sql::ReadObjects, m_session.Number().Add(std::span(std::as_const(keys)))};
  Status status = m_session.Stream(Task::Read, call, [&](const Rows& row) {
    const std::optional<ObjectKey> key = KeyOf(row.Bytes(0, 0));
    if (!key || !wanted.contains(*key)) return;
    if (row.Number(0, 2) > 0) {
      large.push_back({*key, row.Number(0, 1), row.Number(0, 2)});
      return;
    }
    wanted.erase(*key);
    sink(IdOf(*key), Decode(*key, row.Number(0, 1), row.Bytes(0, 3)));
  });
  for (const Large& object : large) {
    if (!status) return status;
    Result<Buffer> packed = ReadLarge(object);
    if (!packed && packed.error().code != ErrorCode::Damaged) return std::move(packed).error();
    wanted.erase(object.key);
    sink(IdOf(object.key), std::move(packed));
  }
  return status;
}

Result<Buffer> ObjectTable::ReadLarge(const Large& object) {
  std::vector<std::byte> encoded;
  std::int64_t next = 0;
  while (next < object.pieces) {
    Result<std::vector<Rows>> rows = m_session.Run(
        Task::Read, {{Sql::ReadPieces,
                      m_session.Number().Add(object.key).Add(next).Add(next + kPiecesAtOnce)}});
    if (!rows) return std::move(rows).error();
    const Rows& pieces = rows->front();
    for (int row = 0; row < pieces.Count(); ++row, ++next) {
      if (pieces.Number(row, 0) != next) return Damage(object.key);
      const std::span<const std::byte> bytes = pieces.Bytes(row, 1);
      encoded.insert(encoded.end(), bytes.begin(), bytes.end());
    }
    if (pieces.Count() == 0) return Damage(object.key);
  }
  return Decode(object.key, object.sizeBytes, encoded);
}

std::optional<StoredObject> ObjectTable::ObjectIn(const Rows& rows, int row) {
  const std::optional<ObjectKey> key = KeyOf(rows.Bytes(row, 0));
  if (!key || rows.Number(row, 2) != 0) return std::nullopt;
  Result<Buffer> packed = Decode(*key, rows.Number(row, 1), rows.Bytes(row, 3));
  if (!packed) return std::nullopt;
  return StoredObject{IdOf(*key), *std::move(packed)};
}

/// The server follows the parents in the rows. Where these end before the history does, another
/// statement goes on with the parent that the text of the commit names.
Status ObjectTable::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  Line line{id, most};
  while (line.next && line.left > 0) {
    const Id first = *line.next;
    // What was passed before a connection is lost isn't asked for again.
    Status status = m_session.Repeat<Status>(Task::Read, [&] { return ReadLine(line, sink); });
    if (!status) return status;
    if (line.next == first) {
      sink(first, NoSuchObject(first));
      return {};
    }
  }
  return {};
}

/// Passes the next commits, up to one that is large or that the rows don't lead to.
Status ObjectTable::ReadLine(Line& line, const ReadSink& sink) {
  const std::optional<ObjectKey> first = KeyOf(*line.next);
  if (!first) return {};
  std::optional<Large> large;
  const auto most = static_cast<std::int64_t>(
      std::min<std::uint64_t>(line.left, std::numeric_limits<std::int64_t>::max()));
  const Call call{Sql::ReadHistory, m_session.Number().Add(*first).Add(most)};
  Status status = m_session.Stream(Task::Read, call, [&](const Rows& row) {
    const std::optional<ObjectKey> key = KeyOf(row.Bytes(0, 0));
    if (large || !line.next || line.left == 0 || !key || key != KeyOf(*line.next)) return;
    if (row.Number(0, 2) > 0) {
      large = Large{*key, row.Number(0, 1), row.Number(0, 2)};
    } else {
      Pass(line, Decode(*key, row.Number(0, 1), row.Bytes(0, 3)), sink);
    }
  });
  if (!status || !large) return status;
  Result<Buffer> packed = ReadLarge(*large);
  if (!packed && packed.error().code != ErrorCode::Damaged) return std::move(packed).error();
  Pass(line, std::move(packed), sink);
  return {};
}

void ObjectTable::Pass(Line& line, Result<Buffer> packed, const ReadSink& sink) {
  const Id id = *std::exchange(line.next, std::nullopt);
  --line.left;
  if (packed) line.next = LinksOf(*packed).parent;
  sink(id, std::move(packed));
}

Result<std::vector<std::optional<std::uint64_t>>> ObjectTable::Sizes(std::span<const Id> ids) {
  std::unordered_map<ObjectKey, std::uint64_t, ObjectKeyHash> found;
  const Status status = ForEachPart(KeysOf(ids), [&](std::span<const ObjectKey> part) {
    return m_session.Repeat<Status>(Task::Read, [&]() -> Status {
      Result<std::vector<Rows>> result =
          m_session.Run(Task::Read, {{Sql::ReadSizes, m_session.Number().Add(part)}});
      if (!result) return std::move(result).error();
      const Rows& rows = result->front();
      for (int row = 0; row < rows.Count(); ++row) {
        const std::optional<ObjectKey> key = KeyOf(rows.Bytes(row, 0));
        if (!key || rows.Number(row, 1) < 0) return m_session.Damage();
        found[*key] = static_cast<std::uint64_t>(rows.Number(row, 1));
      }
      return {};
    });
  });
  if (!status) return status.error();
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const std::optional<ObjectKey> key = KeyOf(id);
    const auto size = key ? found.find(*key) : found.end();
    sizes.push_back(size == found.end() ? std::nullopt : std::optional(size->second));
  }
  return sizes;
}

Status ObjectTable::List(std::vector<ObjectKey>& keys) {
  constexpr std::int64_t kListedAtOnce = 10000;
  return m_session.Repeat<Status>(Task::Read, [&]() -> Status {
    Parameters parameters = m_session.Number();
    if (keys.empty()) {
      parameters.Add(std::string_view());
    } else {
      parameters.Add(keys.back());
    }
    Result<std::vector<Rows>> result =
        m_session.Run(Task::Read, {{Sql::ListObjects, parameters.Add(kListedAtOnce)}});
    if (!result) return std::move(result).error();
    const Rows& rows = result->front();
    for (int row = 0; row < rows.Count(); ++row) {
      const std::optional<ObjectKey> key = KeyOf(rows.Bytes(row, 0));
      // Keys that don't ascend would let the listing go in a circle.
      if (!key || (!keys.empty() && *key <= keys.back())) return m_session.Damage();
      keys.push_back(*key);
    }
    return {};
  });
}

Result<RemovedObjects> ObjectTable::Remove(std::span<const ObjectKey> keys) {
  RemovedObjects removed;
  const Status status = ForEachPart(keys, [&](std::span<const ObjectKey> part) -> Status {
    Result<std::vector<Rows>> rows =
        m_session.Run(Task::Save, {{Sql::ForgetCondemned, m_session.Number().Add(part)},
                                   {Sql::DeletePieces, m_session.Number().Add(part)},
                                   {Sql::DeleteObjects, m_session.Number().Add(part)}});
    if (!rows) return std::move(rows).error();
    removed.count += static_cast<std::uint64_t>((*rows)[2].Number(0, 0));
    removed.sizeBytes += static_cast<std::uint64_t>((*rows)[2].Number(0, 1));
    return {};
  });
  if (!status) return status.error();
  return removed;
}

}  // namespace TalVcs::Kit::Postgres
