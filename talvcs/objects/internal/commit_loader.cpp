#include <talvcs/objects/internal/commit_loader.h>

#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/irepository.h>

#include <memory>
#include <utility>

namespace TalVcs {

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
  const CommitText* const text = ReadText(id);
  if (text == nullptr) return nullptr;
  parentId = text->parentId;

  cow_ptr<Commit> commit = std::make_shared<Commit>(m_repository, false);
  Commit& fresh = *commit.write();
  fresh.SetAuthorName(text->authorName);
  fresh.SetAuthorEmail(text->authorEmail);
  fresh.SetDescription(text->description);
  fresh.SetCommitTime(text->time);
  fresh.SetCommitTimezoneBias(text->bias);
  if (text->treeId.View().IsEmpty()) {
    CommitAccess::RebuildTree(fresh, m_repository);
    return commit;
  }
  cow_ptr<CommitTree> handle;
  if (cow_ptr<Tree> root = m_trees.Load(text->treeId, m_lastRoot)) {
    m_lastRoot = root;
    *handle.write() = CommitTree(std::move(root));
  }
  CommitAccess::SetTree(fresh, std::move(handle), m_repository);
  return commit;
}

// Returns null for a commit that is unreadable, or that is its own ancestor.
const CommitText* CommitLoader::ReadText(const Id& id) {
  const auto [known, added] = m_commits.try_emplace(id);
  KnownCommit& commit = known->second;
  if (added) {
    commit.text = ParseCommit(m_getter(id));
  } else if (commit.history == m_history) {
    return nullptr;
  }
  commit.history = m_history;
  m_historyIds.push_back(id);
  return commit.text.readable ? &commit.text : nullptr;
}

}  // namespace TalVcs
