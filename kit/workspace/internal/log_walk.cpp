#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/workspace/internal/log_walk.h>

#include <optional>
#include <utility>

namespace TalVcs::Kit {

void LogWalk::Add(const cow_ptr<Commit>& head) {
  if (!head) return;
  Enter(head);
  m_heads = m_nodes.size();
}

cow_ptr<Commit> LogWalk::GetOnlyHead() const {
  const bool is_one = m_heads == 1 && m_last == nullptr && !m_ready.empty();
  return is_one ? m_ready.top()->commit : nullptr;
}

/// Returns the node of a version, or null if it was passed. A new one is ready.
LogWalk::Node* LogWalk::Enter(const cow_ptr<Commit>& commit) {
  const Id id = commit->GetId();
  if (m_heads > 1 && m_passed.Contains(*KeyOf(id))) return nullptr;
  const auto [found, is_new] = m_nodes.try_emplace(id);
  Node& node = found->second;
  if (!is_new) return &node;
  node.time = commit->GetCommitTime().ToTimeT();
  node.order = m_order++;
  node.commit = commit;
  m_ends.insert(&node);
  MakeReady(node);
  return &node;
}

void LogWalk::MakeReady(Node& node) {
  if (node.isReady) return;
  node.isReady = true;
  m_ready.push(&node);
}

/// Lets the parent of a version come in.
void LogWalk::ReadParent(Node& node) {
  const cow_ptr<Commit> commit = node.commit->GetParent();
  node.hasReadParent = true;
  m_ends.erase(&node);
  Node* const parent = commit ? Enter(commit) : nullptr;
  if (parent == nullptr) return;
  node.parent = node.ancestor = parent;
  if (!node.isPassed) ++parent->waitsFor;
}

/// Lets the parent of the latest end come in. One that can't be read fails when it is needed.
void LogWalk::ReadAhead() {
  Node& end = **m_ends.begin();
  if (!Try([&] { ReadParent(end); })) m_ends.erase(&end);
}

/// Returns the latest version that waits for nothing, or null.
LogWalk::Node* LogWalk::Best() {
  while (!m_ready.empty() && m_ready.top()->waitsFor > 0) {
    m_ready.top()->isReady = false;
    m_ready.pop();
  }
  return m_ready.empty() ? nullptr : m_ready.top();
}

/// Returns the earliest ancestor that was read, or the version itself. Shortens the way there.
LogWalk::Node* LogWalk::EarliestOf(Node& node) noexcept {
  Node* at = &node;
  while (at->ancestor != nullptr) {
    if (at->ancestor->ancestor != nullptr) at->ancestor = at->ancestor->ancestor;
    at = at->ancestor;
  }
  return at;
}

/// Returns whether a version that follows may come in: by an end that isn't an ancestor.
bool LogWalk::MayBeFollowed(Node& node) {
  auto end = m_ends.begin();
  if (end != m_ends.end() && *end == EarliestOf(node)) ++end;
  return end != m_ends.end() && node.time - (*end)->time <= m_clockError.count();
}

/// Forgets a version that was passed and whose parent was read. No version that is known follows
/// it, so that no other one has it as an ancestor.
void LogWalk::Forget(const Node& node) { m_nodes.erase(node.commit->GetId()); }

// The parent is read when it is needed, so that the last version of a page costs nothing more.
Result<cow_ptr<Commit>> LogWalk::Next() {
  if (m_last != nullptr) {
    ReadParent(*m_last);
    Forget(*std::exchange(m_last, nullptr));
  }
  Node* best = Best();
  while (best != nullptr && MayBeFollowed(*best)) {
    if (Status status = m_reporter->Add(0); !status) return std::move(status).error();
    ReadAhead();
    best = Best();
  }
  if (best == nullptr) return cow_ptr<Commit>();
  cow_ptr<Commit> commit = best->commit;
  if (m_heads > 1) m_passed.Insert(*KeyOf(commit->GetId()), 0);
  m_ready.pop();
  best->isReady = false;
  best->isPassed = true;
  if (best->parent != nullptr && --best->parent->waitsFor == 0) MakeReady(*best->parent);
  if (best->hasReadParent) {
    Forget(*best);
  } else {
    m_last = best;
  }
  return commit;
}

bool LogFilter::Takes(const Commit& commit) {
  const std::chrono::sys_seconds time(std::chrono::seconds(commit.GetCommitTime().ToTimeT()));
  if (m_options.since && time < *m_options.since) return false;
  if (m_options.until && time > *m_options.until) return false;
  if (!m_options.author.empty() && ToUtf8(commit.GetAuthorName()) != m_options.author) return false;
  return m_path.IsEmpty() || ChangesPath(commit);
}

std::string LogFilter::GetOnlyPath() const {
  const bool has_others = m_options.since || m_options.until || !m_options.author.empty();
  return has_others ? std::string() : ToUtf8(m_path);
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

FilteredLog::FilteredLog(WorkspaceState& state, LogWalk walk, LogFilter filter, Reporter& reporter,
                         std::uint64_t skippedItems)
    : m_state(state),
      m_walk(std::move(walk)),
      m_filter(std::move(filter)),
      m_reporter(reporter),
      m_skippedItems(skippedItems) {
  const cow_ptr<Commit> head = m_walk.GetOnlyHead();
  const std::string path = m_filter.GetOnlyPath();
  if (head && !path.empty()) m_path.emplace(*m_state.store, head->GetId(), path, m_reporter);
}

/// Returns the next version that changed the path; null where the walk of stored forms ends.
Result<cow_ptr<Commit>> FilteredLog::NextOfPath() {
  for (;;) {
    const Result<std::optional<PathHistory::Step>> next = m_path->Next();
    if (!next) return next.error();
    const std::optional<PathHistory::Step>& step = *next;
    if (!step) return cow_ptr<Commit>();
    const Status status = m_reporter.Add(step->changesPath ? 1 : m_skippedItems);
    if (!status) return status.error();
    if (!step->changesPath) continue;
    m_state.PassVersion();
    return m_state.FindCommit(step->version);
  }
}

/// Goes on with objects from the version on that stored forms don't suffice for.
Status FilteredLog::LeavePath() {
  const Id obstacle = m_path->GetObstacle();
  m_path.reset();
  if (obstacle == m_walk.GetOnlyHead()->GetId()) return {};
  const Result<cow_ptr<Commit>> commit = m_state.FindCommit(obstacle);
  if (!commit) return commit.error();
  m_walk = LogWalk({}, m_reporter);
  m_walk.Add(*commit);
  return {};
}

Result<cow_ptr<Commit>> FilteredLog::Next() {
  if (m_path) {
    Result<cow_ptr<Commit>> commit = NextOfPath();
    if (!commit || *commit || IsEmpty(m_path->GetObstacle())) return commit;
    if (Status status = LeavePath(); !status) return std::move(status).error();
  }
  for (;;) {
    Result<cow_ptr<Commit>> commit = m_walk.Next();
    if (!commit || !*commit) return commit;
    const bool is_taken = m_filter.Takes(**commit);
    m_state.PassVersion();
    Status status = m_reporter.Add(is_taken ? 1 : m_skippedItems);
    if (!status) return std::move(status).error();
    if (is_taken) return commit;
  }
}

}  // namespace TalVcs::Kit
