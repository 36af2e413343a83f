#include <kit/open/internal/errors.h>
#include <kit/open/internal/id_map.h>
#include <kit/open/internal/record_reader.h>

#include <algorithm>

namespace TalVcs::Kit {

namespace {

constexpr std::uint64_t kMostWindow = 1024;

// Puts what the record names into it.
void ReadLinks(CommitRecord& commit) {
  auto visit = [&commit](const PackedReference& reference) {
    (reference.type == ObjectType::Tree ? commit.root : commit.parent) = reference.id;
  };
  using Visit = decltype(visit);
  VisitReferences(commit.packed, {&visit, [](void* object, const PackedReference& reference) {
                                    (*static_cast<Visit*>(object))(reference);
                                  }});
}

}  // namespace

ReadProblem MissingObject() { return {ErrorCode::NotFound, "the store has no such object"}; }

Error UnreadableObject(const Id& id, const ReadProblem& problem) {
  // A store that lacks what one of its branches reaches is damaged.
  const ErrorCode code = problem.code == ErrorCode::Unavailable ? problem.code : ErrorCode::Damaged;
  return MakeError(code, "cannot read object " + ShortId(id) + ": " + problem.reason, TextOf(id),
                   "no branch was moved");
}

std::optional<ReadProblem> CheckRecord(const Id& id, ObjectType type,
                                       const Result<Buffer>& packed) {
  if (!packed) {
    const Error& error = packed.error();
    if (error.code == ErrorCode::NotFound) return MissingObject();
    const ErrorCode code =
        error.code == ErrorCode::Damaged ? ErrorCode::Damaged : ErrorCode::Unavailable;
    return ReadProblem{code, Describe(error)};
  }
  const std::optional<ObjectProblem> problem = CheckPackedObject(id, *packed);
  if (problem == ObjectProblem::NotCanonical) {
    return ReadProblem{ErrorCode::Damaged, "it is not in the form that the library writes"};
  }
  if (problem) return ReadProblem{ErrorCode::Damaged, "its bytes are not those of its id"};
  if (GetPackedType(*packed) != type) {
    return ReadProblem{ErrorCode::Damaged, "it is an object of another type"};
  }
  return std::nullopt;
}

std::optional<ReadProblem> CheckRecord(const Id& id, const Result<Buffer>& packed) {
  const std::optional<ObjectType> type = packed ? GetPackedType(*packed) : std::nullopt;
  return CheckRecord(id, type.value_or(ObjectType::Blob), packed);
}

Status ReadEach(IObjectStore& store, std::span<const Id> ids, const TakeRecord& take) {
  constexpr std::uint32_t kPassed = IdMap::kMostValue;
  IdMap indexes;
  for (std::size_t index = 0; index < ids.size(); ++index) {
    const std::optional<ObjectKey> key = KeyOf(ids[index]);
    if (key) indexes.Insert(*key, static_cast<std::uint32_t>(index));
  }
  Status result;
  Status status = store.Read(ids, [&](const Id& id, Result<Buffer> packed) {
    const std::optional<ObjectKey> key = KeyOf(id);
    std::uint32_t* index = key ? indexes.Find(*key) : nullptr;
    if (!result || index == nullptr || *index == kPassed) return;
    result = take(std::exchange(*index, kPassed), std::move(packed));
  });
  if (!status) return status;
  for (std::size_t index = 0; index < ids.size() && result; ++index) {
    const std::optional<ObjectKey> key = KeyOf(ids[index]);
    if (key && *indexes.Find(*key) == kPassed) continue;
    result = take(index, MakeError(ErrorCode::Unavailable, "the store did not pass the object"));
  }
  return result;
}

Result<std::vector<CommitRecord>> CommitReader::Next() {
  std::vector<CommitRecord> commits;
  const Status status =
      m_store.ReadHistory(m_next, m_window, [this, &commits](const Id& id, Result<Buffer> packed) {
        // What follows a damaged commit, or isn't its ancestor, is nothing that was asked for.
        if (AtEnd() || !(id == m_next)) return;
        CommitRecord commit;
        commit.id = id;
        commit.problem = CheckRecord(id, ObjectType::Commit, packed);
        if (!commit.problem) {
          commit.packed = *std::move(packed);
          ReadLinks(commit);
        }
        m_next = commit.parent;
        commits.push_back(std::move(commit));
      });
  if (!status) return status.error();
  if (commits.empty()) {
    CommitRecord& commit = commits.emplace_back();
    commit.id = std::exchange(m_next, Id());
    commit.problem = MissingObject();
  }
  m_window = std::min(2 * m_window, kMostWindow);
  return commits;
}

Result<bool> IsAncestor(IObjectStore& store, const Id& ancestor, const Id& head) {
  const Result<std::vector<Id>> missing = store.Missing({&ancestor, 1});
  if (!missing) return missing.error();
  if (!missing->empty()) return false;
  CommitReader reader(store, head);
  while (!reader.AtEnd()) {
    const Result<std::vector<CommitRecord>> window = reader.Next();
    if (!window) return window.error();
    for (const CommitRecord& commit : *window) {
      if (commit.id == ancestor) return true;
      if (commit.problem) return UnreadableObject(commit.id, *commit.problem);
    }
  }
  return false;
}

}  // namespace TalVcs::Kit
