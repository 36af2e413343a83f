#include <stores/postgres/internal/repository.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

std::vector<ObjectKey> SortedKeysOf(std::span<const Id> ids) {
  std::vector<ObjectKey> keys;
  keys.reserve(ids.size());
  for (const Id& id : ids) {
    if (const std::optional<ObjectKey> key = KeyOf(id)) keys.push_back(*key);
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

/// Returns those of `keys` that aren't in `marked`; both are in order.
std::vector<ObjectKey> Unmarked(const std::vector<ObjectKey>& keys,
                                const std::vector<ObjectKey>& marked) {
  std::vector<ObjectKey> unmarked;
  std::set_difference(keys.begin(), keys.end(), marked.begin(), marked.end(),
                      std::back_inserter(unmarked));
  return unmarked;
}

}  // namespace

Result<std::vector<ObjectKey>> Repository::ListKeys() {
  std::vector<ObjectKey> keys;
  for (std::size_t count = 0;; count = keys.size()) {
    if (Status status = m_objects.List(keys); !status) return std::move(status).error();
    if (keys.size() == count) return keys;
  }
}

Status Repository::List(const IdSink& sink) {
  std::vector<ObjectKey> keys;
  for (;;) {
    const std::size_t passed = keys.size();
    if (Status status = m_objects.List(keys); !status) return status;
    if (keys.size() == passed) return {};
    std::vector<Id> ids;
    for (const ObjectKey& key : std::span(keys).subspan(passed)) ids.push_back(IdOf(key));
    if (!sink(ids)) return {};
    // The next page begins after the last of this one.
    keys.erase(keys.begin(), keys.end() - 1);
  }
}

Result<RemovedObjects> Repository::RemoveUnmarked(const MarkObjects& mark) {
  // What the mark looks for isn't what a save relies on.
  const Lease lease = m_lease;
  Result<RemovedObjects> removed =
      m_session.Repeat<Result<RemovedObjects>>(Task::Save, [&] { return RemoveOnce(mark); });
  m_lease = lease;
  return removed;
}

/// The whole removal is one transaction, which keeps the row of the repository locked.
Result<RemovedObjects> Repository::RemoveOnce(const MarkObjects& mark) {
  Result<std::vector<Rows>> rows =
      m_session.Run(Task::Save, {{Sql::Begin}, {Sql::LockExclusive, m_session.Number()}});
  if (!rows) return std::move(rows).error();
  const Result<std::vector<Head>> heads = ReadHeads();
  if (!heads) return heads.error();
  const Result<std::vector<Id>> marked = mark(*heads);
  if (!marked) return marked.error();
  const Result<std::vector<ObjectKey>> keys = ListKeys();
  if (!keys) return keys.error();
  Result<RemovedObjects> removed = m_objects.Remove(Unmarked(*keys, SortedKeysOf(*marked)));
  if (!removed) return removed;
  std::vector<Call> calls;
  if (removed->count != 0) calls.push_back({Sql::RaiseRemovals, m_session.Number()});
  calls.push_back({Sql::Commit});
  rows = m_session.Run(Task::Save, calls);
  if (!rows) return std::move(rows).error();
  return removed;
}

/// A notice that was sent while there was no connection is lost, so the heads are read after each
/// LISTEN.
Result<std::vector<Head>> Repository::WaitForHeads(std::span<const Head> seen,
                                                   std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds kBetweenConnections(100);
  const auto end = std::chrono::steady_clock::now() +
                   std::min<std::chrono::milliseconds>(timeout, std::chrono::hours(24));
  for (;;) {
    if (Status status = m_session.Listen(); !status) return std::move(status).error();
    Result<std::vector<Head>> heads = Heads();
    if (!heads || !std::equal(heads->begin(), heads->end(), seen.begin(), seen.end())) return heads;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (m_session.WaitForNotice(std::max(left, std::chrono::milliseconds(0)))) return Heads();
    // This waits for a server that starts again.
    heads = Heads();
    if (!heads || std::chrono::steady_clock::now() >= end) return heads;
    std::this_thread::sleep_for(kBetweenConnections);
  }
}

}  // namespace TalVcs::Kit::Postgres
