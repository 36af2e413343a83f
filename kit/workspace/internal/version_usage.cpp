// Each version is visited after its parent, and the objects that come and go between the two are
// noted. An object that came in with one version alone, and that each of the versions after it
// lacks, belongs to that version:
//
//     A---B---C        x came with B
//         `---D        C and D lack x: it is B's own. If C had it, B and C would share it.

#include <kit/workspace/internal/live_objects.h>
#include <kit/workspace/internal/version_usage.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

using Index = HistoryGraph::Index;
constexpr Index kNone = HistoryGraph::kNone;

class VersionMeasuring {
 public:
  VersionMeasuring(IObjectStore& store, const HistoryGraph& graph, Reporter& reporter)
      : m_store(store), m_graph(graph), m_objects(store, reporter), m_usage(graph.Nodes().size()) {}

  Result<std::vector<VersionUsage>> Run() {
    Status status = CountCommits();
    const std::vector<std::vector<Index>> children = Children();
    std::vector<Index> pending = Roots();
    while (status && !pending.empty()) {
      const Index version = pending.back();
      pending.pop_back();
      status = Visit(version);
      pending.insert(pending.end(), children[version].begin(), children[version].end());
    }
    if (!status) return std::move(status).error();
    CountOwn();
    return std::move(m_usage);
  }

 private:
  /// Where an object came in.
  struct Origin {
    Index version = kNone;
    bool hasOthers = false;      // came in with other versions too
    std::uint32_t removals = 0;  // how many of the versions after it lack the object
  };

  Id RootOf(Index version) const {
    return m_graph[version].hasRoot ? IdOf(m_graph[version].root) : Id();
  }

  std::vector<Index> Roots() const {
    std::vector<Index> roots;
    for (Index i = 0; i < m_graph.Count(); ++i) {
      if (m_graph[i].parent == kNone) roots.push_back(i);
    }
    return roots;
  }

  std::vector<std::vector<Index>> Children() const {
    std::vector<std::vector<Index>> children(m_graph.Count());
    for (Index i = 0; i < m_graph.Count(); ++i) {
      if (m_graph[i].parent != kNone) children[m_graph[i].parent].push_back(i);
    }
    return children;
  }

  Status CountCommits() {
    std::vector<Id> ids;
    for (const HistoryGraph::Node& node : m_graph.Nodes()) ids.push_back(IdOf(node.id));
    const auto sizes = m_store.Sizes(ids);
    if (!sizes) return sizes.error();
    for (std::size_t i = 0; i < ids.size(); ++i) m_usage[i].own = {1, (*sizes)[i].value_or(0)};
    return {};
  }

  Status Visit(Index version) {
    const Index parent = m_graph[version].parent;
    const bool is_first = parent == kNone;
    Status status = m_objects.MoveTo(is_first ? Id() : RootOf(parent));
    if (status) status = m_objects.MoveTo(RootOf(version));
    if (!status) return status;
    m_usage[version].shared = m_objects.Totals();
    m_origins.resize(m_objects.CountEver());
    for (const std::uint32_t object : m_objects.Gained()) {
      Origin& origin = m_origins[object];
      if (origin.version == kNone) {
        origin.version = version;
      } else {
        origin.hasOthers = true;
      }
    }
    for (const std::uint32_t object : m_objects.Lost()) {
      if (!is_first && m_origins[object].version == parent) ++m_origins[object].removals;
    }
    return {};
  }

  void CountOwn() {
    for (std::uint32_t object = 0; object < m_origins.size(); ++object) {
      const Origin& origin = m_origins[object];
      if (origin.version == kNone || origin.hasOthers) continue;
      if (origin.removals != m_graph[origin.version].children) continue;
      VersionUsage& usage = m_usage[origin.version];
      const std::uint64_t size_bytes = m_objects.SizeOf(object);
      ++usage.own.count;
      usage.own.sizeBytes += size_bytes;
      --usage.shared.count;
      usage.shared.sizeBytes -= size_bytes;
    }
  }

  IObjectStore& m_store;
  const HistoryGraph& m_graph;
  LiveObjects m_objects;
  std::vector<Origin> m_origins;  // by the number of the object
  std::vector<VersionUsage> m_usage;
};

}  // namespace

Result<std::vector<VersionUsage>> MeasureVersions(IObjectStore& store, const HistoryGraph& graph,
                                                  Reporter& reporter) {
  return InPhase(reporter, "contents",
                 [&] { return VersionMeasuring(store, graph, reporter).Run(); });
}

}  // namespace TalVcs::Kit
