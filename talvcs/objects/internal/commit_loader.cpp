#include <talvcs/objects/internal/commit_loader.h>

#include <talvcs/foundation/helpers.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/irepository.h>

#include <memory>
#include <string_view>
#include <utility>

namespace TalVcs {

namespace {

TalStringT<WideChar> Wide(std::string_view utf8) {
  return TalStringT<WideChar>(TalStringT<char>(TalStringViewT<char>(utf8)));
}

}  // namespace

CommitLoader::CommitLoader(IRepository& repository, Getter getter)
    : m_repository(&repository),
      m_getter(getter),
      m_target(repository),
      m_trees(m_target, getter) {}

void CommitLoader::BeginHistory() {
  ++m_history;
  m_historyIds.clear();
}

void CommitLoader::ForgetHistory() {
  for (const Id& id : m_historyIds) m_commits.erase(id);
}

cow_ptr<Commit> CommitLoader::Load(const Id& id, Id& parentId) {
  if (id.View().IsEmpty()) return nullptr;
  if (cow_ptr<Commit> stored = m_repository->GetCommitFromStorage(id)) return stored;
  if (!m_getter) return nullptr;
  const CommitFields* const fields = ReadFields(id);
  if (fields == nullptr) return nullptr;
  parentId = Id(Wide(fields->parentId));

  cow_ptr<Commit> commit = std::make_shared<Commit>(m_repository, false);
  Commit& fresh = *commit.write();
  fresh.SetAuthorName(Wide(fields->authorName));
  fresh.SetAuthorEmail(Wide(fields->authorEmail));
  fresh.SetDescription(Wide(fields->description));
  fresh.SetCommitTime(fields->time);
  fresh.SetCommitTimezoneBias(fields->bias);
  if (fields->treeId.empty()) {
    // The commit has the root of the head, which may not have been stored yet.
    CommitAccess::RebuildTree(fresh, m_repository);
    m_trees.NoteStored(CommitAccess::PresentRoot(fresh));
    return commit;
  }
  cow_ptr<CommitTree> handle;
  if (cow_ptr<Tree> root = m_trees.Load(Id(Wide(fields->treeId)), m_lastRoot)) {
    m_lastRoot = root;
    *handle.write() = CommitTree(std::move(root));
  }
  CommitAccess::SetTree(fresh, std::move(handle), m_repository);
  return commit;
}

// Returns null for a commit that is unreadable, or that is its own ancestor.
const CommitFields* CommitLoader::ReadFields(const Id& id) {
  const auto [known, added] = m_commits.try_emplace(id);
  KnownCommit& commit = known->second;
  if (added) {
    StreamIO stream = m_getter(id);
    if (Helpers::ShiftObjectIdentifier(stream, "commit ")) {
      commit.text = StreamText(stream);
      commit.fields = ReadLooseCommitText(commit.text.View());
    }
  } else if (commit.history == m_history) {
    return nullptr;
  }
  commit.history = m_history;
  m_historyIds.push_back(id);
  return commit.fields ? &*commit.fields : nullptr;
}

}  // namespace TalVcs
