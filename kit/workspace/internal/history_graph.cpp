#include <kit/text.h>
#include <kit/workspace/internal/history_graph.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

Result<HistoryGraph> HistoryGraph::Read(WorkspaceState& state, Reporter& reporter) {
  HistoryGraph graph;
  std::vector<Id> heads;
  Status status = reporter.Begin("history");
  for (const auto& [name, id] : state.GetStorage().GetHeadIds()) {
    if (!status) return status.error();
    if (IsEmpty(id)) continue;
    std::string text = ToUtf8(name);
    const bool is_tag = text.starts_with(kTagPrefix);
    graph.m_branches.push_back({std::move(text), is_tag, 0});
    heads.push_back(id);
    status = graph.AddHistory(state.GetRepository().GetHead(name), reporter);
  }
  if (status) status = reporter.End();
  if (!status) return status.error();
  graph.Link();
  graph.Sort();
  for (std::size_t i = 0; i < heads.size(); ++i) {
    graph.m_branches[i].head = graph.m_indexes.at(heads[i]);
  }
  return graph;
}

Status HistoryGraph::AddHistory(const cow_ptr<Commit>& head, Reporter& reporter) {
  Status status;
  for (cow_ptr<Commit> at = head; at && status; at = at->GetParent()) {
    if (!m_indexes.emplace(at->GetId(), m_nodes.size()).second) break;
    m_nodes.push_back(
        {at, at->GetId(), ParseDescription(ToUtf8(at->GetDesciption())), std::nullopt, {}, 0});
    status = reporter.Add(1);
  }
  return status;
}

void HistoryGraph::Link() {
  for (Node& node : m_nodes) {
    if (const cow_ptr<Commit> parent = node.commit->GetParent()) {
      node.parent = m_indexes.at(parent->GetId());
      ++m_nodes[*node.parent].children;
    }
    for (const Id& id : node.message.annotations.merges) {
      const auto merged = m_indexes.find(id);
      if (merged != m_indexes.end()) node.merges.push_back(merged->second);
    }
  }
}

// Takes a version once everything that it names was taken.
void HistoryGraph::Sort() {
  std::vector<std::vector<std::size_t>> followers(m_nodes.size());
  std::vector<std::size_t> missing(m_nodes.size());
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < m_nodes.size(); ++i) {
    if (m_nodes[i].parent) followers[*m_nodes[i].parent].push_back(i);
    for (const std::size_t merged : m_nodes[i].merges) followers[merged].push_back(i);
    missing[i] = m_nodes[i].merges.size() + (m_nodes[i].parent ? 1 : 0);
    if (missing[i] == 0) order.push_back(i);
  }
  for (std::size_t next = 0; next < order.size(); ++next) {
    for (const std::size_t follower : followers[order[next]]) {
      if (--missing[follower] == 0) order.push_back(follower);
    }
  }
  std::vector<std::size_t> places(m_nodes.size());
  std::vector<Node> sorted;
  for (std::size_t i = 0; i < order.size(); ++i) {
    places[order[i]] = i;
    sorted.push_back(std::move(m_nodes[order[i]]));
  }
  for (Node& node : sorted) {
    if (node.parent) node.parent = places[*node.parent];
    for (std::size_t& merged : node.merges) merged = places[merged];
  }
  m_nodes = std::move(sorted);
  for (auto& [id, index] : m_indexes) index = places[index];
}

std::optional<std::size_t> HistoryGraph::Find(const Id& id) const {
  const auto found = m_indexes.find(id);
  if (found == m_indexes.end()) return std::nullopt;
  return found->second;
}

std::chrono::sys_seconds HistoryGraph::TimeOf(std::size_t index) const {
  return std::chrono::sys_seconds(
      std::chrono::seconds(m_nodes[index].commit->GetCommitTime().ToTimeT()));
}

std::vector<std::size_t> HistoryGraph::ByTime() const {
  std::vector<std::size_t> indexes(m_nodes.size());
  for (std::size_t i = 0; i < indexes.size(); ++i) indexes[i] = indexes.size() - 1 - i;
  std::stable_sort(indexes.begin(), indexes.end(),
                   [this](std::size_t a, std::size_t b) { return TimeOf(a) > TimeOf(b); });
  return indexes;
}

}  // namespace TalVcs::Kit
