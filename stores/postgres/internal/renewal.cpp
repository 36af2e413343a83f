// What a save relies on, checked again. tests/protocol/store_protocol.py has the rules for a
// clean-up beside a save, crash_protocol.py those for a server that has crashed.

#include <kit/store/head_table.h>
#include <stores/postgres/internal/object_table.h>

#include <algorithm>
#include <set>

namespace TalVcs::Kit::Postgres {

Result<bool> ObjectTable::AreThere(Sql count, std::span<const ObjectKey> keys) {
  constexpr std::size_t kKeysAtOnce = 8192;
  while (!keys.empty()) {
    const std::span<const ObjectKey> part = keys.first(std::min(keys.size(), kKeysAtOnce));
    keys = keys.subspan(part.size());
    std::vector<Call> calls;
    if (count == Sql::CountThere) {
      calls.push_back({Sql::ForgetCondemned, m_session.Number().Add(part)});
    }
    calls.push_back({count, m_session.Number().Add(part)});
    Result<std::vector<Rows>> rows = m_session.Run(Task::Save, calls);
    if (!rows) return std::move(rows).error();
    if (rows->back().Number(0, 0) != static_cast<std::int64_t>(part.size())) return false;
  }
  return true;
}

/// Makes what was written live again, and checks that what was skipped is live: below a condemned
/// object there may be others, which this save doesn't know.
Result<bool> ObjectTable::Renew() {
  if (m_lease.IsIncomplete()) return false;
  const std::set<ObjectKey> written(m_lease.Written().begin(), m_lease.Written().end());
  std::set<ObjectKey> skipped;
  for (const ObjectKey& key : m_lease.Skipped()) {
    if (!written.contains(key)) skipped.insert(key);
  }
  Result<bool> there =
      AreThere(Sql::CountThere, std::vector<ObjectKey>(written.begin(), written.end()));
  if (!there || !*there) return there;
  return AreThere(Sql::CountLive, std::vector<ObjectKey>(skipped.begin(), skipped.end()));
}

/// Objects are written without waiting for the disk. A server that has lost some of them has ended
/// the connection, so on another one they are looked for again.
bool ObjectTable::HasLostConnection() const noexcept {
  return m_lease.Epoch() >= 0 && m_lease.Connection() != m_session.Connections();
}

Status ObjectTable::RenewLease() {
  const Result<bool> renewed = Renew();
  if (!renewed) return renewed.error();
  if (*renewed) return {};
  m_lease.Expire();
  return ObjectsWereRemoved();
}

Status ObjectTable::CheckLease(const Counters& now) {
  if (!m_lease.IsHeld()) return {};
  if (m_lease.IsExpired() || m_lease.Begun().removals != now.removals) {
    m_lease.Expire();
    return ObjectsWereRemoved();
  }
  return HasLostConnection() || m_lease.Epoch() != now.epoch ? RenewLease() : Status();
}

/// An upload must not name what the server has lost: others would find it, and skip all that is
/// below. After a clean-up it is condemned from the beginning, so that nobody finds it.
Status ObjectTable::CheckUploads(const Counters& now) {
  if (!HasLostConnection() || m_lease.Epoch() != now.epoch) return {};
  Status status = RenewLease();
  if (status) m_lease.SetConnection(m_session.Connections());
  return status;
}

}  // namespace TalVcs::Kit::Postgres
