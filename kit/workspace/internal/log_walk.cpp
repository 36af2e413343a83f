#include <kit/text.h>
#include <kit/workspace/internal/log_walk.h>

#include <optional>
#include <utility>

namespace TalVcs::Kit {

void LogWalk::Add(cow_ptr<Commit> head) {
  if (!head || !m_seen.Insert(*KeyOf(head->GetId()), 0).second) return;
  ++m_heads;
  Put(std::move(head));
}

void LogWalk::Put(cow_ptr<Commit> commit) {
  const std::int64_t time = commit->GetCommitTime().ToTimeT();
  m_queue.push({time, m_order++, std::move(commit)});
}

// The parent is read when it is needed, so that the last version of a page costs nothing more.
// Histories that have come together are walked on once. One alone meets no version twice.
cow_ptr<Commit> LogWalk::Next() {
  cow_ptr<Commit> parent = m_last ? m_last->GetParent() : nullptr;
  m_last = nullptr;
  const bool is_new = parent && (m_heads == 1 || m_seen.Insert(*KeyOf(parent->GetId()), 0).second);
  if (is_new) Put(std::move(parent));
  if (m_queue.empty()) return nullptr;
  m_last = m_queue.top().commit;
  m_queue.pop();
  return m_last;
}

bool LogFilter::Takes(const Commit& commit) {
  const std::chrono::sys_seconds time(std::chrono::seconds(commit.GetCommitTime().ToTimeT()));
  if (m_options.since && time < *m_options.since) return false;
  if (m_options.until && time > *m_options.until) return false;
  if (!m_options.author.empty() && ToUtf8(commit.GetAuthorName()) != m_options.author) return false;
  return m_path.IsEmpty() || ChangesPath(commit);
}

// Where the two roots are equal, nothing below is read. The parent is mostly the next version that
// is asked about, so what it has at the path is kept.
bool LogFilter::ChangesPath(const Commit& commit) {
  const auto root_of = [](const Commit& of) {
    const cow_ptr<CommitTree> tree = of.GetTree();
    return tree ? tree->GetRoot() : nullptr;
  };
  const auto find_in = [this](const cow_ptr<Tree>& root) {
    return root ? root->GetIdByPath(m_path) : std::nullopt;
  };
  const cow_ptr<Tree> after = root_of(commit);
  const cow_ptr<Commit> parent = commit.GetParent();
  const cow_ptr<Tree> before = parent ? root_of(*parent) : nullptr;
  if (after && before && after->GetId() == before->GetId()) return false;
  const bool is_known = after && m_lastRoot && after->GetId() == m_lastRoot->GetId();
  const std::optional<Id> now = is_known ? m_lastFound : find_in(after);
  m_lastFound = find_in(before);
  m_lastRoot = before;
  return now != m_lastFound;
}

}  // namespace TalVcs::Kit
