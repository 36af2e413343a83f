#include <kit/text.h>
#include <kit/workspace/internal/history_graph.h>
#include <kit/workspace/internal/message.h>
#include <talvcs/persistence/packed_object.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the id of a commit's root without following the link; empty for none.
Id RootIdOf(const Commit& commit) {
  Id root;
  VisitReferences(commit.BuildPackedData(),
                  {&root, [](void* object, const PackedReference& reference) {
                     if (reference.type == ObjectType::Tree) {
                       *static_cast<Id*>(object) = reference.id;
                     }
                   }});
  return root;
}

}  // namespace

/// Reads the commits of a graph, which then has them newest first, branch by branch.
class HistoryGraph::Reading {
 public:
  Reading(WorkspaceState& state, HistoryGraph& graph, Reporter& reporter)
      : m_state(state), m_graph(graph), m_reporter(reporter) {}

  Status Run() {
    Status status = m_reporter.Begin("history");
    for (const auto& [name, id] : m_state.GetStorage().GetHeadIds()) {
      if (!status) return status;
      if (IsEmpty(id)) continue;
      std::string text = ToUtf8(name);
      const bool is_tag = text.starts_with(kTagPrefix);
      status = AddHistory(m_state.GetRepository().GetHead(name));
      m_graph.m_branches.push_back({std::move(text), is_tag, *m_indexes.Find(*KeyOf(id))});
    }
    m_state.GetStorage().Trim();
    if (status) Link();
    return status ? m_reporter.End() : status;
  }

 private:
  /// What a version names besides its parent.
  struct Mention {
    enum class Kind { Undoes, Redoes, Merges };

    Index version;
    Kind kind;
    ObjectKey id{};
  };

  Status AddHistory(cow_ptr<Commit> at) {
    Status status;
    Index child = kNone;
    while (at && status) {
      const auto [index, is_new] = m_indexes.Insert(*KeyOf(at->GetId()), m_graph.Count());
      if (is_new) Add(*at);
      if (child != kNone) {
        m_graph.m_nodes[child].parent = *index;
        ++m_graph.m_nodes[*index].children;
      }
      if (!is_new) break;
      child = *index;
      at = at->GetParent();
      status = m_reporter.Add(1);
      m_state.PassVersion();
    }
    return status;
  }

  void Add(const Commit& commit) {
    const Id root = RootIdOf(commit);
    const Annotations annotations = ParseDescription(ToUtf8(commit.GetDesciption())).annotations;
    const Index index = m_graph.Count();
    Node& node = m_graph.m_nodes.emplace_back();
    node.id = *KeyOf(commit.GetId());
    node.hasRoot = !IsEmpty(root);
    if (node.hasRoot) node.root = *KeyOf(root);
    node.time = commit.GetCommitTime().ToTimeT();
    node.isMachineMade = annotations.isMachineMade;
    node.isCheckpoint = annotations.isCheckpoint;
    Mentioned(index, Mention::Kind::Undoes, annotations.undoes);
    Mentioned(index, Mention::Kind::Redoes, annotations.redoes);
    for (const Id& id : annotations.merges) Mentioned(index, Mention::Kind::Merges, id);
  }

  void Mentioned(Index version, Mention::Kind kind, const Id& id) {
    if (!IsEmpty(id)) m_mentions.push_back({version, kind, *KeyOf(id)});
  }

  void Link() {
    for (const Mention& mention : m_mentions) {
      const Index* found = m_indexes.Find(mention.id);
      const Index target = found != nullptr ? *found : kLost;
      Node& node = m_graph.m_nodes[mention.version];
      if (mention.kind == Mention::Kind::Undoes) {
        node.undoes = target;
      } else if (mention.kind == Mention::Kind::Redoes) {
        node.redoes = target;
      } else if (target == kLost) {
        node.hasLostMerges = true;
      } else {
        m_graph.m_merges.emplace_back(mention.version, target);
      }
    }
  }

  WorkspaceState& m_state;
  HistoryGraph& m_graph;
  Reporter& m_reporter;
  IdMap m_indexes;
  std::vector<Mention> m_mentions;
};

Result<HistoryGraph> HistoryGraph::Read(WorkspaceState& state, Reporter& reporter) {
  HistoryGraph graph;
  Status status = Reading(state, graph, reporter).Run();
  if (!status) return std::move(status).error();
  graph.Sort();
  return graph;
}

// Takes a version once everything that it names was taken.
void HistoryGraph::Sort() {
  std::vector<Index> order;
  {
    const Followers followers(m_nodes, m_merges);
    std::vector<std::uint32_t> missing(m_nodes.size());
    for (const auto& [index, merged] : m_merges) ++missing[index];
    for (Index i = 0; i < Count(); ++i) {
      if (m_nodes[i].parent != kNone) ++missing[i];
      if (missing[i] == 0) order.push_back(i);
    }
    for (std::size_t next = 0; next < order.size(); ++next) {
      for (const Index follower : followers.Of(order[next])) {
        if (--missing[follower] == 0) order.push_back(follower);
      }
    }
  }
  std::vector<Index> places(m_nodes.size());
  std::vector<Node> sorted;
  sorted.reserve(m_nodes.size());
  for (Index i = 0; i < Count(); ++i) {
    places[order[i]] = i;
    sorted.push_back(m_nodes[order[i]]);
  }
  m_nodes = std::move(sorted);
  const auto move = [&places](Index& index) {
    if (index < kLost) index = places[index];
  };
  for (Node& node : m_nodes) {
    move(node.parent);
    move(node.undoes);
    move(node.redoes);
  }
  for (auto& [index, merged] : m_merges) {
    move(index);
    move(merged);
  }
  std::ranges::stable_sort(m_merges, {}, &Merge::first);
  for (Branch& branch : m_branches) move(branch.head);
}

std::span<const HistoryGraph::Merge> HistoryGraph::MergesOf(Index index) const {
  const auto first = std::ranges::lower_bound(m_merges, index, {}, &Merge::first);
  const auto last = std::ranges::upper_bound(m_merges, index, {}, &Merge::first);
  return {first, last};
}

std::vector<HistoryGraph::Index> HistoryGraph::ByTime() const {
  std::vector<Index> indexes(m_nodes.size());
  for (Index i = 0; i < Count(); ++i) indexes[i] = Count() - 1 - i;
  std::ranges::stable_sort(indexes, std::ranges::greater(),
                           [this](Index index) { return m_nodes[index].time; });
  return indexes;
}

Followers::Followers(std::span<const HistoryGraph::Node> nodes,
                     std::span<const HistoryGraph::Merge> merges)
    : m_begins(nodes.size() + 1) {
  const auto count = static_cast<HistoryGraph::Index>(nodes.size());
  for (const HistoryGraph::Node& node : nodes) {
    if (node.parent != HistoryGraph::kNone) ++m_begins[node.parent];
  }
  for (const auto& [index, merged] : merges) ++m_begins[merged];
  // Now each has the end of its followers. Filling them in from the back turns it into their begin.
  for (std::size_t i = 1; i < m_begins.size(); ++i) m_begins[i] += m_begins[i - 1];
  m_followers.resize(m_begins.back());
  auto merge = merges.rbegin();
  for (HistoryGraph::Index i = count; i-- > 0;) {
    for (; merge != merges.rend() && merge->first == i; ++merge) {
      m_followers[--m_begins[merge->second]] = i;
    }
    if (nodes[i].parent != HistoryGraph::kNone) m_followers[--m_begins[nodes[i].parent]] = i;
  }
}

}  // namespace TalVcs::Kit
