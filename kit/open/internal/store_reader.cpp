#include <kit/open/internal/record_reader.h>
#include <kit/open/internal/store_reader.h>

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace TalVcs::Kit {

namespace {

// Subtrees that are read together with a tree.
constexpr std::size_t kMostSubtrees = 1024;

void AddSubtrees(const Buffer& packed, std::vector<Id>& subtrees) {
  if (GetPackedType(packed) != ObjectType::Tree) return;
  VisitReferences(packed, {&subtrees, [](void* object, const PackedReference& reference) {
                             auto& ids = *static_cast<std::vector<Id>*>(object);
                             if (reference.type != ObjectType::Tree) return;
                             if (ids.size() < kMostSubtrees) ids.push_back(reference.id);
                           }});
}

}  // namespace

ObjectProblem ProblemOf(const Error& error) noexcept {
  if (error.code == ErrorCode::NotFound) return ObjectProblem::Missing;
  return error.code == ErrorCode::Damaged ? ObjectProblem::Damaged : ObjectProblem::Unreadable;
}

StoreReader::~StoreReader() = default;

void StoreReader::Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history,
                       Sink sink) {
  if (wanted.size() == 1 && PassKnown(wanted.front(), sink)) return;
  if (ahead == ReadAhead::History && wanted.size() == 1 && history > 1) {
    ReadAncestors(wanted.front(), history, sink);
  } else {
    ReadObjects(wanted, ahead == ReadAhead::Subtrees, sink);
  }
}

bool StoreReader::PassKnown(const Id& wanted, Sink sink) {
  const auto found = std::find_if(m_known.begin(), m_known.end(),
                                  [&wanted](const auto& object) { return object.id == wanted; });
  if (found == m_known.end()) return false;
  const Buffer packed = std::move(found->packed);
  m_known.erase(found);
  sink(wanted, &packed, ObjectProblem::Missing);
  return true;
}

// The commit itself has to be passed, its ancestors need not.
void StoreReader::ReadAncestors(const Id& commit, std::uint64_t history, Sink sink) {
  bool is_passed = false;
  const Status status =
      m_store->ReadHistory(commit, history, [&](const Id& id, const Result<Buffer>& packed) {
        const bool is_wanted = id == commit;
        if (is_wanted && is_passed) return;
        is_passed = is_passed || is_wanted;
        if (packed) {
          sink(id, &*packed, ObjectProblem::Missing);
        } else if (is_wanted) {
          sink(id, nullptr, ProblemOf(packed.error()));
        }
      });
  if (is_passed) return;
  sink(commit, nullptr, status ? ObjectProblem::Missing : ProblemOf(status.error()));
}

void StoreReader::ReadObjects(std::span<const Id> wanted, bool withSubtrees, Sink sink) {
  std::unordered_set<Id> left(wanted.begin(), wanted.end());
  std::vector<Id> subtrees;
  const Status status = m_store->Read(wanted, [&](const Id& id, const Result<Buffer>& packed) {
    if (left.erase(id) == 0) return;
    if (packed && withSubtrees) AddSubtrees(*packed, subtrees);
    sink(id, packed ? &*packed : nullptr,
         packed ? ObjectProblem::Missing : ProblemOf(packed.error()));
  });
  const ObjectProblem problem = status ? ObjectProblem::Unreadable : ProblemOf(status.error());
  for (const Id& id : left) sink(id, nullptr, problem);
  if (!status || subtrees.empty()) return;
  // What can't be read ahead is asked for again when it is needed, and fails then.
  const Status ahead = m_store->Read(subtrees, [&](const Id& id, const Result<Buffer>& packed) {
    if (packed) sink(id, &*packed, ObjectProblem::Missing);
  });
  static_cast<void>(ahead);
}

}  // namespace TalVcs::Kit
