#include <kit/open/internal/repairing_store.h>
#include <kit/store/read_history.h>
#include <talvcs/persistence/packed_object.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns what is wrong with what a store passed for an object of any type.
std::optional<ReadProblem> ProblemWith(const Id& id, const Result<Buffer>& packed) {
  const std::optional<ObjectType> type = packed ? GetPackedType(*packed) : std::nullopt;
  return CheckRecord(id, type.value_or(ObjectType::Blob), packed);
}

}  // namespace

RepairingStore::~RepairingStore() = default;

std::optional<ReadProblem> RepairingStore::ProblemOf(const Id& id) const {
  const auto found = m_problems.find(id);
  return found == m_problems.end() ? std::nullopt : std::optional(found->second);
}

Status RepairingStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  UnreadableObjects unreadable;
  Status status = m_store.Read(ids, [&](const Id& id, Result<Buffer> packed) {
    std::optional<ReadProblem> problem = ProblemWith(id, packed);
    if (problem) {
      unreadable.emplace(id, Unreadable{*std::move(problem), std::move(packed)});
    } else {
      sink(id, std::move(packed));
    }
  });
  if (status && !unreadable.empty()) status = ReadFromSource(unreadable, sink);
  if (status && m_pendingBytes >= kMostBytes) status = Flush();
  return status;
}

/// Passes what the second store has of these objects, and for the others what the first one passed.
Status RepairingStore::ReadFromSource(const UnreadableObjects& unreadable, const ReadSink& sink) {
  std::vector<Id> ids;
  for (const auto& [id, object] : unreadable) {
    // Wrong bytes can't be replaced in every store.
    const bool can_repair = object.problem.code == ErrorCode::NotFound || m_repairable != nullptr;
    if (can_repair && !m_problems.contains(id)) {
      ids.push_back(id);
    } else {
      sink(id, object.passed);
    }
  }
  return ReadEach(m_source, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
    const Id& id = ids[index];
    const Unreadable& own = unreadable.at(id);
    if (ProblemWith(id, packed)) {
      sink(id, own.passed);
    } else {
      Take(id, own.problem, *packed);
      sink(id, std::move(packed));
    }
    return {};
  });
}

void RepairingStore::Take(const Id& id, const ReadProblem& problem, const Buffer& packed) {
  (problem.code == ErrorCode::NotFound ? m_missing : m_damaged).push_back({id, packed});
  m_pendingBytes += packed.GetSize();
  m_repairedBytes += packed.GetSize();
  m_problems.emplace(id, problem);
}

Status RepairingStore::Flush() {
  Status status = m_missing.empty() ? Status() : m_store.Write(m_missing);
  if (status && !m_damaged.empty()) status = m_repairable->Replace(m_damaged);
  if (!status) return status;
  m_missing.clear();
  m_damaged.clear();
  m_pendingBytes = 0;
  return {};
}

Status RepairingStore::Finish() {
  Status status = Flush();
  return status && !m_problems.empty() ? m_store.MoveHeads({}) : status;
}

Result<std::vector<Id>> RepairingStore::Missing(std::span<const Id> ids) {
  return m_store.Missing(ids);
}

Status RepairingStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> RepairingStore::Sizes(std::span<const Id> ids) {
  return m_store.Sizes(ids);
}

Status RepairingStore::Write(std::span<const StoredObject> objects) {
  return m_store.Write(objects);
}

Result<std::vector<Head>> RepairingStore::Heads() { return m_store.Heads(); }

Status RepairingStore::MoveHeads(std::span<const HeadMove> moves) {
  return m_store.MoveHeads(moves);
}

Status RepairingStore::List(const IdSink& sink) { return m_store.List(sink); }

Result<RemovedObjects> RepairingStore::RemoveUnmarked(const MarkObjects& mark) {
  return m_store.RemoveUnmarked(mark);
}

Result<std::optional<std::string>> RepairingStore::Value(std::string_view name) {
  return m_store.Value(name);
}

Status RepairingStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  return m_store.SetValue(name, value);
}

}  // namespace TalVcs::Kit
