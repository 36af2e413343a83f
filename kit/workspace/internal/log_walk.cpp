#include <kit/text.h>
#include <kit/workspace/internal/log_walk.h>

#include <optional>
#include <utility>

namespace TalVcs::Kit {

void LogWalk::Add(cow_ptr<Commit> head) {
  if (!head || !m_seen.insert(head->GetId()).second) return;
  const std::int64_t time = head->GetCommitTime().ToTimeT();
  m_queue.push({time, m_order++, std::move(head)});
}

// The parent is read when it is needed, so that the last version of a page costs nothing more.
cow_ptr<Commit> LogWalk::Next() {
  if (m_last) Add(m_last->GetParent());
  m_last = nullptr;
  if (m_queue.empty()) return nullptr;
  m_last = m_queue.top().commit;
  m_queue.pop();
  return m_last;
}

bool LogFilter::Takes(const Commit& commit) const {
  const std::chrono::sys_seconds time(std::chrono::seconds(commit.GetCommitTime().ToTimeT()));
  if (m_options.since && time < *m_options.since) return false;
  if (m_options.until && time > *m_options.until) return false;
  if (!m_options.author.empty() && ToUtf8(commit.GetAuthorName()) != m_options.author) return false;
  return m_path.IsEmpty() || ChangesPath(commit);
}

// Where the two roots are equal, nothing below is read.
bool LogFilter::ChangesPath(const Commit& commit) const {
  const auto root_of = [](const Commit& of) {
    const cow_ptr<CommitTree> tree = of.GetTree();
    return tree ? tree->GetRoot() : nullptr;
  };
  const cow_ptr<Tree> after = root_of(commit);
  const cow_ptr<Commit> parent = commit.GetParent();
  const cow_ptr<Tree> before = parent ? root_of(*parent) : nullptr;
  if (after && before && after->GetId() == before->GetId()) return false;
  const std::optional<Id> now = after ? after->GetIdByPath(m_path) : std::nullopt;
  const std::optional<Id> then = before ? before->GetIdByPath(m_path) : std::nullopt;
  return now != then;
}

}  // namespace TalVcs::Kit
