#include <kit/store/internal/parent_of.h>
#include <kit/store/read_history.h>
#include <kit/store/tee_store.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

namespace {

Error HasFallenBehind(std::vector<Head> heads) {
  Error error;
  error.code = ErrorCode::Conflict;
  error.message = "the second store has other heads than the first";
  error.unchanged = "the second store was not changed";
  error.heads = std::move(heads);
  return error;
}

}  // namespace

TeeStore::TeeStore(std::shared_ptr<IObjectStore> first,
                   std::shared_ptr<IObjectStore> second) noexcept
    : m_first(std::move(first)), m_second(std::move(second)) {}
TeeStore::~TeeStore() = default;

Status TeeStore::CompareSecond(std::span<const Head> heads) {
  Result<std::vector<Head>> others = m_second->Heads();
  if (!others) return std::move(others).error();
  if (!std::equal(heads.begin(), heads.end(), others->begin(), others->end())) {
    return HasFallenBehind(*std::move(others));
  }
  return {};
}

/// Moves heads of the second store as they have moved in the first, if all heads were equal before.
Status TeeStore::MoveSecond(std::span<const HeadMove> moves) {
  if (moves.empty()) return m_second->MoveHeads(moves);
  const Result<std::vector<Head>> heads = m_first->Heads();
  if (!heads) return heads.error();
  std::map<std::string, Id> before;
  for (const Head& head : *heads) before.insert_or_assign(head.name, head.id);
  for (const HeadMove& move : moves) {
    before.erase(move.name);
    if (!move.expected.View().IsEmpty()) before.emplace(move.name, move.expected);
  }
  std::vector<Head> expected;
  for (const auto& [name, id] : before) expected.push_back({name, id});
  Status status = CompareSecond(expected);
  return status ? m_second->MoveHeads(moves) : status;
}

Status TeeStore::Rejoin() {
  const Result<std::vector<Head>> heads = m_first->Heads();
  if (!heads) return m_secondStatus = heads.error();
  Result<std::vector<Head>> others = m_second->Heads();
  if (!others) return m_secondStatus = others.error();
  std::vector<HeadMove> removals;
  for (const Head& other : *others) {
    if (!std::ranges::binary_search(*heads, other.name, {}, &Head::name)) {
      removals.push_back({other.name, other.id, Id()});
    }
  }
  if (!removals.empty()) m_secondStatus = m_second->MoveHeads(removals);
  if (removals.empty() || m_secondStatus) m_secondStatus = CompareSecond(*heads);
  return m_secondStatus;
}

Result<std::vector<Id>> TeeStore::Missing(std::span<const Id> ids) {
  Result<std::vector<Id>> missing = m_first->Missing(ids);
  if (!missing || !SecondTakesPart()) return missing;
  const Result<std::vector<Id>> others = m_second->Missing(ids);
  if (!others) m_secondStatus = others.error();
  if (!others || *others == *missing) return missing;
  std::unordered_set<Id> either(missing->begin(), missing->end());
  either.insert(others->begin(), others->end());
  missing->clear();
  std::copy_if(ids.begin(), ids.end(), std::back_inserter(*missing),
               [&](const Id& id) { return either.contains(id); });
  return missing;
}

Status TeeStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  std::vector<Id> passed;
  std::unordered_map<Id, Error> lost;
  Status status = m_first->Read(ids, [&](const Id& id, Result<Buffer> packed) {
    if (packed) {
      passed.push_back(id);
      sink(id, std::move(packed));
    } else {
      lost.emplace(id, std::move(packed).error());
    }
  });
  if (!status) {
    const std::unordered_set<Id> found(passed.begin(), passed.end());
    for (const Id& id : ids) {
      if (!found.contains(id)) lost.emplace(id, status.error());
    }
  }
  if (lost.empty()) return {};
  std::vector<Id> asked;
  for (const auto& [id, error] : lost) asked.push_back(id);
  // An error of the second store isn't reported: that of the first is.
  static_cast<void>(m_second->Read(asked, [&](const Id& id, Result<Buffer> packed) {
    if (packed && lost.erase(id) > 0) sink(id, std::move(packed));
  }));
  if (!status && !lost.empty()) return status;
  for (auto& [id, error] : lost) sink(id, std::move(error));
  return {};
}

Status TeeStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  std::optional<Id> next = id;
  std::uint64_t count = 0;
  // Whether the first store fails as a whole or lacks one commit, the second is asked for the next.
  static_cast<void>(m_first->ReadHistory(id, most, [&](const Id& found, Result<Buffer> packed) {
    if (packed) {
      ++count;
      next = ParentOf(*packed);
      sink(found, std::move(packed));
    } else {
      next = found;
    }
  }));
  if (!next || count >= most) return {};
  return ReadHistoryByParents(*this, *next, most - count, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> TeeStore::Sizes(std::span<const Id> ids) {
  return m_first->Sizes(ids);
}

Status TeeStore::Write(std::span<const StoredObject> objects) {
  Status status = m_first->Write(objects);
  if (status && SecondTakesPart()) m_secondStatus = m_second->Write(objects);
  return status;
}

Result<std::vector<Head>> TeeStore::Heads() { return m_first->Heads(); }

Status TeeStore::MoveHeads(std::span<const HeadMove> moves) {
  Status status = m_first->MoveHeads(moves);
  if (!SecondTakesPart()) return status;
  if (status) {
    m_secondStatus = MoveSecond(moves);
  } else if (status.error().code == ErrorCode::Unknown) {
    m_secondStatus = status;
  }
  return status;
}

Status TeeStore::List(const IdSink& sink) { return m_first->List(sink); }

Result<RemovedObjects> TeeStore::RemoveUnmarked(const MarkObjects& mark) {
  std::vector<Head> heads;
  std::vector<Id> kept;
  Result<RemovedObjects> removed =
      m_first->RemoveUnmarked([&](std::span<const Head> marked_from) -> Result<std::vector<Id>> {
        Result<std::vector<Id>> marked = mark(marked_from);
        heads.assign(marked_from.begin(), marked_from.end());
        if (marked) kept = *marked;
        return marked;
      });
  if (!removed || !SecondTakesPart()) return removed;
  const Result<RemovedObjects> others =
      m_second->RemoveUnmarked([&](std::span<const Head> others_heads) -> Result<std::vector<Id>> {
        if (std::equal(heads.begin(), heads.end(), others_heads.begin(), others_heads.end())) {
          return kept;
        }
        return HasFallenBehind({others_heads.begin(), others_heads.end()});
      });
  if (!others) m_secondStatus = others.error();
  return removed;
}

Result<std::optional<std::string>> TeeStore::Value(std::string_view name) {
  return m_first->Value(name);
}

Status TeeStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  Status status = m_first->SetValue(name, value);
  if (status && SecondTakesPart()) m_secondStatus = m_second->SetValue(name, value);
  return status;
}

Status TeeStore::Replace(std::span<const StoredObject> objects) {
  return ReplaceObjects(*m_first, objects);
}

void TeeStore::Trim() noexcept {
  TrimStore(*m_first);
  TrimStore(*m_second);
}

Result<std::vector<Head>> TeeStore::WaitForHeads(std::span<const Head> seen,
                                                 std::chrono::milliseconds timeout) {
  return WatchHeads(*m_first, seen, timeout);
}

Result<StoreOpening> TeeStore::ReadOpening(std::string_view branch, std::string_view valueName,
                                           std::string_view otherwise) {
  return Kit::ReadOpening(*m_first, branch, valueName, otherwise);
}

}  // namespace TalVcs::Kit
