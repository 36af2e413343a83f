// A clean-up beside others. tests/protocol/store_protocol.py is its model, whose steps are the
// functions here:
//
//   BeginPass         from here on, new objects are known by the number of the pass
//   ListKeys          all objects, condemned ones too
//   MarkHeads         what the heads reach
//   CondemnUnmarked   one transaction, for which writers wait: marks from heads that have moved
//                     meanwhile, condemns what is unmarked, raises the epoch
//   RemoveDue         removes what was condemned before the grace, in many transactions

#include <stores/postgres/internal/repository.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

constexpr std::size_t kKeysAtOnce = 8192;

// Heads that have moved are marked without the lock so often, then with it.
constexpr int kMarksWithoutLock = 5;

}  // namespace

Result<RemovedObjects> Repository::RemoveGradually(const MarkObjects& mark,
                                                   std::chrono::milliseconds grace) {
  // What the mark looks for isn't what a save relies on. An exception of the mark leaves it, so
  // that the next move checks more than it must.
  const Lease lease = m_lease;
  Marked marked{mark, {}, {}, false};
  const Result<std::int64_t> pass = BeginPass();
  if (!pass) return pass.error();
  const Result<std::vector<ObjectKey>> listed = ListKeys();
  if (!listed) return listed.error();
  const Result<std::vector<Head>> heads = Heads();
  if (!heads) return heads.error();
  Status status = MarkHeads(*heads, marked);
  if (status) status = CondemnUnmarked(*pass, *listed, marked);
  m_lease = lease;
  if (!status) return std::move(status).error();
  return RemoveDue(grace);
}

Result<std::int64_t> Repository::BeginPass() {
  return m_session.Repeat<Result<std::int64_t>>(Task::Save, [this]() -> Result<std::int64_t> {
    Result<std::vector<Rows>> rows =
        m_session.Run(Task::Save, {{Sql::BeginPass, m_session.Number()}});
    if (!rows) return std::move(rows).error();
    return rows->front().Count() == 1 ? Result<std::int64_t>(rows->front().Number(0, 0))
                                      : m_session.Damage();
  });
}

/// Marks from those heads that weren't marked from before.
Status Repository::MarkHeads(const std::vector<Head>& heads, Marked& marked) {
  std::vector<Head> moved;
  for (const Head& head : heads) {
    if (!marked.heads.contains(head.id)) moved.push_back(head);
  }
  if (moved.empty() && marked.isBegun) return {};
  marked.isBegun = true;
  const Result<std::vector<Id>> ids = marked.mark(moved);
  if (!ids) return ids.error();
  for (const Id& id : *ids) {
    if (const std::optional<ObjectKey> key = KeyOf(id)) marked.keys.push_back(*key);
  }
  std::sort(marked.keys.begin(), marked.keys.end());
  marked.keys.erase(std::unique(marked.keys.begin(), marked.keys.end()), marked.keys.end());
  for (const Head& head : moved) marked.heads.insert(head.id);
  return {};
}

Status Repository::CondemnUnmarked(std::int64_t pass, const std::vector<ObjectKey>& listed,
                                   Marked& marked) {
  for (int marks = 0;; ++marks) {
    bool is_done = false;
    Status status = m_session.Repeat<Status>(Task::Save, [&] {
      return CondemnOnce(pass, listed, marked, marks >= kMarksWithoutLock, is_done);
    });
    if (!status || is_done) return status;
    const Result<std::vector<Head>> heads = Heads();
    if (!heads) return heads.error();
    status = MarkHeads(*heads, marked);
    if (!status) return status;
  }
}

Status Repository::CondemnOnce(std::int64_t pass, const std::vector<ObjectKey>& listed,
                               Marked& marked, bool may_mark, bool& is_done) {
  Result<std::vector<Rows>> rows =
      m_session.Run(Task::Save, {{Sql::Begin},
                                 {Sql::LockExclusive, m_session.Number()},
                                 {Sql::ListNewObjects, m_session.Number().Add(pass)}});
  if (!rows) return std::move(rows).error();
  const Result<std::vector<Head>> heads = ReadHeads();
  if (!heads) return heads.error();
  const bool have_moved = std::any_of(heads->begin(), heads->end(), [&](const Head& head) {
    return !marked.heads.contains(head.id);
  });
  if (have_moved && !may_mark) {
    const Result<std::vector<Rows>> end = m_session.Run(Task::Save, {{Sql::Rollback}});
    return end ? Status() : Status(end.error());
  }
  if (Status status = MarkHeads(*heads, marked); !status) return status;
  std::vector<ObjectKey> seen = listed;
  const Rows& fresh = (*rows)[2];
  for (int row = 0; row < fresh.Count(); ++row) {
    if (const std::optional<ObjectKey> key = KeyOf(fresh.Bytes(row, 0))) seen.push_back(*key);
  }
  std::sort(seen.begin(), seen.end());
  seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
  std::vector<ObjectKey> condemned;
  std::set_difference(seen.begin(), seen.end(), marked.keys.begin(), marked.keys.end(),
                      std::back_inserter(condemned));
  std::vector<Call> calls;
  for (std::span<const ObjectKey> rest = condemned; !rest.empty();) {
    const std::span<const ObjectKey> part = rest.first(std::min(rest.size(), kKeysAtOnce));
    rest = rest.subspan(part.size());
    calls.push_back({Sql::Condemn, m_session.Number().Add(part)});
  }
  calls.push_back({Sql::RaiseEpoch, m_session.Number()});
  calls.push_back({Sql::Commit});
  rows = m_session.Run(Task::Save, calls);
  if (!rows) return std::move(rows).error();
  is_done = true;
  return {};
}

Result<RemovedObjects> Repository::RemoveDue(std::chrono::milliseconds grace) {
  RemovedObjects removed;
  for (bool is_done = false; !is_done;) {
    const Result<RemovedObjects> some = m_session.Repeat<Result<RemovedObjects>>(
        Task::Save, [&] { return RemoveDueOnce(grace, is_done); });
    if (!some) return some;
    removed.count += some->count;
    removed.sizeBytes += some->sizeBytes;
  }
  return removed;
}

/// A writer that saves a condemned object waits for this transaction, or takes its row first.
Result<RemovedObjects> Repository::RemoveDueOnce(std::chrono::milliseconds grace, bool& is_done) {
  constexpr std::int64_t kRemovedAtOnce = 1000;
  Result<std::vector<Rows>> rows = m_session.Run(
      Task::Save,
      {{Sql::Begin}, {Sql::TakeDue, m_session.Number().Add(grace.count()).Add(kRemovedAtOnce)}});
  if (!rows) return std::move(rows).error();
  const Rows& due = (*rows)[1];
  std::vector<ObjectKey> keys;
  for (int row = 0; row < due.Count(); ++row) {
    if (const std::optional<ObjectKey> key = KeyOf(due.Bytes(row, 0))) keys.push_back(*key);
  }
  Result<RemovedObjects> removed = m_objects.Remove(keys);
  if (!removed) return removed;
  Result<std::vector<Rows>> end = m_session.Run(Task::Save, {{Sql::Commit}});
  if (!end) return std::move(end).error();
  is_done = due.Count() < kRemovedAtOnce;
  return removed;
}

}  // namespace TalVcs::Kit::Postgres
