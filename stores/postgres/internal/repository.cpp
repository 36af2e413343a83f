#include <kit/store/head_table.h>
#include <stores/postgres/internal/repository.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

// A branch that has moved on is followed back by so many commits.
constexpr std::uint64_t kCommitsFollowed = 100;

/// Returns the key of a head or a setting: the digest of "name " and its name.
ObjectKey KeyOfName(std::string_view name) {
  constexpr std::string_view kPrefix = "name ";
  Buffer bytes;
  bytes.Append(kPrefix.data(), kPrefix.size());
  bytes.Append(name.data(), name.size());
  return *KeyOf(Id(bytes));
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool IsEmpty(const Id& id) noexcept { return id.View().IsEmpty(); }

/// Refuses what no store can do, wherever its heads are.
Status CheckNames(std::span<const HeadMove> moves) {
  HeadTable expected;
  for (const HeadMove& move : moves) {
    if (!IsEmpty(move.expected)) expected.emplace(move.name, move.expected);
  }
  Status status = CheckMoves(expected, moves);
  const bool is_refused = !status && status.error().code != ErrorCode::Conflict;
  return is_refused ? status : Status();
}

/// The rows of moves, by what is to be done with them. Each kind is in the order of the keys.
struct HeadRows {
  std::vector<ObjectKey> insertedKeys, insertedTargets, updatedKeys, updatedTargets, deletedKeys;
  std::vector<std::string> insertedNames;

  explicit HeadRows(std::span<const HeadMove> moves) {
    std::map<ObjectKey, const HeadMove*> sorted;
    for (const HeadMove& move : moves) {
      if (move.expected != move.desired) sorted.emplace(KeyOfName(move.name), &move);
    }
    for (const auto& [key, move] : sorted) {
      if (IsEmpty(move->desired)) {
        deletedKeys.push_back(key);
      } else if (IsEmpty(move->expected)) {
        insertedKeys.push_back(key);
        insertedNames.push_back(move->name);
        insertedTargets.push_back(*KeyOf(move->desired));
      } else {
        updatedKeys.push_back(key);
        updatedTargets.push_back(*KeyOf(move->desired));
      }
    }
  }

  std::vector<Call> Calls(const Session& session) const {
    std::vector<Call> calls;
    if (!insertedKeys.empty()) {
      calls.push_back({Sql::InsertHeads, session.Number()
                                             .Add(std::span(insertedKeys))
                                             .Add(std::span(insertedNames))
                                             .Add(std::span(insertedTargets))});
    }
    if (!updatedKeys.empty()) {
      calls.push_back(
          {Sql::UpdateHeads,
           session.Number().Add(std::span(updatedKeys)).Add(std::span(updatedTargets))});
    }
    if (!deletedKeys.empty()) {
      calls.push_back({Sql::DeleteHeads, session.Number().Add(std::span(deletedKeys))});
    }
    return calls;
  }
};

}  // namespace

Result<std::vector<Head>> Repository::ReadHeads() {
  Result<std::vector<Rows>> result =
      m_session.Run(Task::Read, {{Sql::ReadHeads, m_session.Number()}});
  if (!result) return std::move(result).error();
  return HeadsIn(result->front());
}

Result<std::vector<Head>> Repository::HeadsIn(const Rows& rows) const {
  std::vector<Head> heads;
  bool is_damaged = false;
  for (int row = 0; row < rows.Count(); ++row) {
    const std::optional<ObjectKey> target = KeyOf(rows.Bytes(row, 1));
    is_damaged = is_damaged || !target;
    heads.push_back({TextOf(rows.Bytes(row, 0)), target ? IdOf(*target) : Id()});
  }
  if (!is_damaged) return heads;
  Error error = m_session.Damage();
  error.heads = std::move(heads);
  return error;
}

Result<std::vector<Head>> Repository::Heads() {
  return m_session.Repeat<Result<std::vector<Head>>>(Task::Read, [this] { return ReadHeads(); });
}

Result<StoreOpening> Repository::ReadOpening(std::string_view branch, std::string_view valueName,
                                             std::string_view otherwise) {
  using Found = Result<StoreOpening>;
  return m_session.Repeat<Found>(Task::Read, [&]() -> Found {
    const ObjectKey key = KeyOfName(valueName);
    Result<std::vector<Rows>> rows = m_session.Run(
        Task::Read, {{Sql::ReadHeads, m_session.Number()},
                     {Sql::ReadValue, m_session.Number().Add(key)},
                     {Sql::ReadOpened, m_session.Number().Add(branch).Add(key).Add(otherwise)}});
    if (!rows) return std::move(rows).error();
    Result<std::vector<Head>> heads = HeadsIn((*rows)[0]);
    if (!heads) return std::move(heads).error();
    StoreOpening opening{*std::move(heads), std::nullopt, {}};
    const Rows& value = (*rows)[1];
    if (value.Count() != 0) opening.value = TextOf(value.Bytes(0, 0));
    const Rows& objects = (*rows)[2];
    for (int row = 0; row < objects.Count(); ++row) {
      std::optional<StoredObject> object = m_objects.ObjectIn(objects, row);
      if (object) opening.objects.push_back(*std::move(object));
    }
    return opening;
  });
}

Status Repository::CheckHeads(std::span<const HeadMove> moves, const Rows& rows) {
  std::map<ObjectKey, Id> actual;
  for (int row = 0; row < rows.Count(); ++row) {
    const std::optional<ObjectKey> key = KeyOf(rows.Bytes(row, 0));
    const std::optional<ObjectKey> target = KeyOf(rows.Bytes(row, 1));
    if (!key || !target) return m_session.Damage();
    actual.emplace(*key, IdOf(*target));
  }
  HeadTable heads;
  for (const HeadMove& move : moves) {
    const auto found = actual.find(KeyOfName(move.name));
    if (found != actual.end()) heads.emplace(move.name, found->second);
  }
  return CheckMoves(heads, moves);
}

Status Repository::MoveOnce(std::span<const HeadMove> moves, bool& is_sent) {
  std::vector<ObjectKey> keys;
  for (const HeadMove& move : moves) keys.push_back(KeyOfName(move.name));
  Result<std::vector<Rows>> rows =
      m_session.Run(Task::Save, {{Sql::Begin},
                                 {Sql::LockShared, m_session.Number()},
                                 {Sql::LockHeads, m_session.Number().Add(std::span(keys))}});
  if (!rows) return std::move(rows).error();
  Status status = CheckHeads(moves, (*rows)[2]);
  if (!status) return status;
  // A branch that is locked where it was expected is out of reach of a transaction that was lost.
  // One that must not exist can't be locked.
  const bool are_locked = std::none_of(moves.begin(), moves.end(),
                                       [](const HeadMove& move) { return IsEmpty(move.expected); });
  if (are_locked) is_sent = false;
  status = m_objects.CheckLease(CountersIn((*rows)[1]));
  if (!status) return status;
  std::vector<Call> calls = HeadRows(moves).Calls(m_session);
  if (!calls.empty()) {
    calls.push_back({Sql::Notify, Parameters().AddText(m_session.Channel())});
  }
  calls.push_back({Sql::Commit});
  is_sent = true;
  rows = m_session.Run(Task::Save, calls);
  if (rows) return {};
  // A server that answers has moved nothing.
  if (!m_session.IsLost()) is_sent = false;
  // Another writer has made the branch since it was looked for: look again.
  if (m_session.State() == kUniqueViolation) m_session.AllowRepeat();
  return std::move(rows).error();
}

Status Repository::MoveHeads(std::span<const HeadMove> moves) {
  if (Status status = CheckNames(moves); !status) return status;
  bool is_sent = false;
  Status status = m_session.Repeat<Status>(Task::Save, [&] { return MoveOnce(moves, is_sent); });
  if (!status && is_sent) {
    // An answer was lost before. A row that the lost transaction has locked is free again.
    const bool is_conflict = status.error().code == ErrorCode::Conflict;
    const bool have_moved = is_conflict && HaveMoved(moves, status.error().heads);
    if (have_moved && WaitForLog()) {
      status = {};
    } else {
      Error error = std::move(status).error();
      error.code = ErrorCode::Unknown;
      error.message = "the answer of the server was lost: the branches may have moved";
      error.unchanged.clear();
      return error;
    }
  }
  if (status) m_lease.End();
  return status;
}

bool Repository::IsDescendant(const Id& id, const Id& ancestor) {
  bool is_found = false;
  const Status status = m_objects.ReadHistory(
      id, kCommitsFollowed,
      [&](const Id& commit, const Result<Buffer>&) { is_found = is_found || commit == ancestor; });
  return status && is_found;
}

/// Returns whether each branch is where it was to go, or at a descendant.
bool Repository::HaveMoved(std::span<const HeadMove> moves, std::span<const Head> actual) {
  for (std::size_t index = 0; index < moves.size(); ++index) {
    if (index >= actual.size()) return false;
    const Id& desired = moves[index].desired;
    if (actual[index].id == desired) continue;
    if (IsEmpty(desired) || !IsDescendant(actual[index].id, desired)) return false;
  }
  return true;
}

/// Waits for the disk and for a synchronous standby, as a transaction that was lost may not have
/// done: after a crash its move can be seen before a standby has it.
Status Repository::WaitForLog() {
  return m_session.Repeat<Status>(Task::Save, [this]() -> Status {
    const Result<std::vector<Rows>> rows = m_session.Run(
        Task::Save, {{Sql::Begin}, {Sql::LockShared, m_session.Number()}, {Sql::Commit}});
    return rows ? Status() : Status(rows.error());
  });
}

Result<std::optional<std::string>> Repository::Value(std::string_view name) {
  using Found = Result<std::optional<std::string>>;
  return m_session.Repeat<Found>(Task::Read, [&]() -> Found {
    Result<std::vector<Rows>> rows =
        m_session.Run(Task::Read, {{Sql::ReadValue, m_session.Number().Add(KeyOfName(name))}});
    if (!rows) return std::move(rows).error();
    if (rows->front().Count() == 0) return std::optional<std::string>();
    return std::optional(TextOf(rows->front().Bytes(0, 0)));
  });
}

Status Repository::SetValue(std::string_view name, std::optional<std::string_view> value) {
  Call call{Sql::DeleteValue, m_session.Number().Add(KeyOfName(name))};
  if (value) {
    call.statement = Sql::SetValue;
    call.parameters.Add(*value);
  }
  return m_session.Repeat<Status>(Task::Save, [&]() -> Status {
    const Result<std::vector<Rows>> rows = m_session.Run(Task::Save, {&call, 1});
    return rows ? Status() : Status(rows.error());
  });
}

}  // namespace TalVcs::Kit::Postgres
