// A version that goes leaves its place to the nearest kept one before it. What it has merged goes
// over to the versions after it:
//
//     A---b---M---d---E          A-------E      E merges y's nearest kept one, X
//        \   .               ->     \   .
//         X-y                        X--
//
// Small letters go. A merge base of two branches never goes.

#include <kit/text.h>
#include <kit/workspace/internal/thinning.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

bool Contains(const std::vector<cow_ptr<Commit>>& commits, const cow_ptr<Commit>& commit) {
  return std::any_of(commits.begin(), commits.end(), [&](const cow_ptr<Commit>& other) {
    return other->GetId() == commit->GetId();
  });
}

}  // namespace

Result<ThinnedHistory> ThinnedHistory::Make(WorkspaceState& state, const HistoryGraph& graph,
                                            const std::vector<bool>& kept) {
  ThinnedHistory history;
  for (std::size_t i = 0; i < graph.Nodes().size(); ++i) {
    const HistoryGraph::Node& node = graph[i];
    Version version;
    if (node.parent) {
      const Version& parent = history.m_versions[*node.parent];
      version.nearest = parent.nearest;
      version.isCut = !parent.nearest;
      if (!parent.commit) version.merges = parent.merges;
    }
    history.AddMerged(node, version);
    if (kept[i]) {
      Result<cow_ptr<Commit>> made = history.MakeAgain(state, node, graph, version);
      if (!made) return std::move(made).error();
      version.commit = *std::move(made);
      version.nearest = version.commit;
      version.merges.clear();
    }
    history.m_versions.push_back(std::move(version));
  }
  return history;
}

// What goes is replaced by the nearest kept one before it, with what was merged in between.
void ThinnedHistory::AddMerged(const HistoryGraph::Node& node, Version& version) const {
  for (const std::size_t index : node.merges) {
    const Version& merged = m_versions[index];
    std::vector<cow_ptr<Commit>> commits = merged.merges;
    if (merged.nearest) commits.push_back(merged.nearest);
    for (const cow_ptr<Commit>& commit : commits) {
      if (!Contains(version.merges, commit)) version.merges.push_back(commit);
    }
  }
}

Annotations ThinnedHistory::NewAnnotations(const HistoryGraph::Node& node,
                                           const HistoryGraph& graph,
                                           const Version& version) const {
  Annotations annotations = node.message.annotations;
  annotations.merges.clear();
  for (const cow_ptr<Commit>& merged : version.merges) {
    annotations.merges.push_back(merged->GetId());
  }
  // An undo without its version, and the first version that is left, can't be taken back.
  if (version.isCut) annotations.isMachineMade = true;
  for (Id* id : {&annotations.undoes, &annotations.redoes}) {
    if (IsEmpty(*id)) continue;
    const std::optional<std::size_t> target = graph.Find(*id);
    const bool is_kept = target && *target < m_versions.size() && m_versions[*target].commit;
    if (!is_kept) annotations.isMachineMade = true;
    *id = is_kept ? m_versions[*target].commit->GetId() : Id();
  }
  return annotations;
}

Result<cow_ptr<Commit>> ThinnedHistory::MakeAgain(WorkspaceState& state,
                                                  const HistoryGraph::Node& node,
                                                  const HistoryGraph& graph,
                                                  const Version& version) const {
  AnnotatedMessage message = node.message;
  message.annotations = NewAnnotations(node, graph, version);
  const cow_ptr<Commit> old_parent = node.commit->GetParent();
  const Id parent_before = old_parent ? old_parent->GetId() : Id();
  const Id parent_now = version.nearest ? version.nearest->GetId() : Id();
  if (parent_before == parent_now && message.annotations == node.message.annotations) {
    return node.commit;
  }
  const Kit::Version old = DescribeCommit(*node.commit);
  return state.Make({version.nearest,
                     RootOf(node.commit),
                     std::move(message),
                     {old.author, old.email, old.time, old.offset}});
}

std::vector<BranchMove> ThinnedHistory::Moves(const HistoryGraph& graph) const {
  std::vector<BranchMove> moves;
  for (const HistoryGraph::Branch& branch : graph.Branches()) {
    const cow_ptr<Commit>& head = m_versions[branch.head].commit;
    if (!(head->GetId() == graph[branch.head].id)) moves.push_back({branch.name, head});
  }
  return moves;
}

}  // namespace TalVcs::Kit
