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

constexpr std::uint32_t kNone = 0xFFFFFFFF;

class VersionMeasuring {
 public:
  VersionMeasuring(IObjectStore& store, const HistoryGraph& graph, Reporter& reporter)
      : m_store(store), m_graph(graph), m_objects(store, reporter), m_usage(graph.Nodes().size()) {}

  Result<std::vector<VersionUsage>> Run() {
    Status status = CountCommits();
    const std::vector<std::vector<std::size_t>> children = Children();
    std::vector<std::size_t> pending = Roots();
    while (status && !pending.empty()) {
      const std::size_t version = pending.back();
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
    std::uint32_t version = kNone;
    bool hasOthers = false;      // came in with other versions too
    std::uint32_t removals = 0;  // how many of the versions after it lack the object
  };

  Id RootOf(std::size_t version) const {
    const cow_ptr<CommitTree> tree = m_graph[version].commit->GetTree();
    return tree ? tree->GetRootId() : Id();
  }

  std::vector<std::size_t> Roots() const {
    std::vector<std::size_t> roots;
    for (std::size_t i = 0; i < m_graph.Nodes().size(); ++i) {
      if (!m_graph[i].parent) roots.push_back(i);
    }
    return roots;
  }

  std::vector<std::vector<std::size_t>> Children() const {
    std::vector<std::vector<std::size_t>> children(m_graph.Nodes().size());
    for (std::size_t i = 0; i < m_graph.Nodes().size(); ++i) {
      if (m_graph[i].parent) children[*m_graph[i].parent].push_back(i);
    }
    return children;
  }

  Status CountCommits() {
    std::vector<Id> ids;
    for (const HistoryGraph::Node& node : m_graph.Nodes()) ids.push_back(node.id);
    const auto sizes = m_store.Sizes(ids);
    if (!sizes) return sizes.error();
    for (std::size_t i = 0; i < ids.size(); ++i) m_usage[i].own = {1, (*sizes)[i].value_or(0)};
    return {};
  }

  Status Visit(std::size_t version) {
    const std::optional<std::size_t> parent = m_graph[version].parent;
    Status status = m_objects.MoveTo(parent ? RootOf(*parent) : Id());
    if (status) status = m_objects.MoveTo(RootOf(version));
    if (!status) return status;
    m_usage[version].shared = m_objects.Totals();
    m_origins.resize(m_objects.CountEver());
    for (const std::uint32_t object : m_objects.Gained()) {
      Origin& origin = m_origins[object];
      if (origin.version == kNone) {
        origin.version = static_cast<std::uint32_t>(version);
      } else {
        origin.hasOthers = true;
      }
    }
    for (const std::uint32_t object : m_objects.Lost()) {
      if (parent && m_origins[object].version == *parent) ++m_origins[object].removals;
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
  Status status = reporter.Begin("contents");
  if (!status) return std::move(status).error();
  Result<std::vector<VersionUsage>> usage = VersionMeasuring(store, graph, reporter).Run();
  if (usage) status = reporter.End();
  if (!status) return std::move(status).error();
  return usage;
}

}  // namespace TalVcs::Kit
