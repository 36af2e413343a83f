#include <kit/history/version_graph.h>

#include <cstddef>
#include <queue>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

namespace {

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// Collects versions with their links by index, and sorts them.
class GraphBuilder {
 public:
  explicit GraphBuilder(std::vector<Version> versions) {
    m_versions.reserve(versions.size());
    for (Version& version : versions) {
      m_indexes.emplace(version.id, Count());
      m_versions.push_back({std::move(version), -1, {}});
    }
    for (int index = 0; index < Count(); ++index) {
      const auto parent = m_indexes.find(At(index).version.parent);
      if (parent == m_indexes.end()) continue;
      At(index).parent = parent->second;
      At(parent->second).children.push_back(index);
    }
  }

  /// Takes a version once all its children were taken.
  VersionGraph Sort() {
    using Key = std::tuple<std::chrono::sys_seconds, int, int>;  // time, depth, index
    const std::vector<int> depths = Depths();
    std::priority_queue<Key> ready;
    std::vector<std::size_t> missing;
    const auto push = [&](int index) {
      ready.emplace(At(index).version.time, depths[Place(index)], index);
    };
    for (int index = 0; index < Count(); ++index) {
      missing.push_back(At(index).children.size());
      if (missing.back() == 0) push(index);
    }
    std::vector<int> order;
    while (!ready.empty()) {
      const int index = std::get<2>(ready.top());
      ready.pop();
      order.push_back(index);
      const int parent = At(index).parent;
      if (parent >= 0 && --missing[Place(parent)] == 0) push(parent);
    }
    return Reordered(order);
  }

 private:
  int Count() const { return static_cast<int>(m_versions.size()); }
  GraphVersion& At(int index) { return m_versions[Place(index)]; }

  /// Returns the number of versions before each one.
  std::vector<int> Depths() {
    std::vector<int> depths(m_versions.size(), -1);
    std::vector<int> path;
    for (int index = 0; index < Count(); ++index) {
      int at = index;
      for (; at >= 0 && depths[Place(at)] < 0; at = At(at).parent) path.push_back(at);
      int depth = at < 0 ? -1 : depths[Place(at)];
      for (; !path.empty(); path.pop_back()) depths[Place(path.back())] = ++depth;
    }
    return depths;
  }

  VersionGraph Reordered(const std::vector<int>& order) {
    std::vector<int> rows(order.size());
    for (std::size_t row = 0; row < order.size(); ++row) {
      rows[Place(order[row])] = static_cast<int>(row);
    }
    VersionGraph graph;
    graph.versions.reserve(order.size());
    for (const int index : order) {
      GraphVersion& version = graph.versions.emplace_back(std::move(At(index)));
      if (version.parent >= 0) version.parent = rows[Place(version.parent)];
      for (int& child : version.children) child = rows[Place(child)];
    }
    return graph;
  }

  std::vector<GraphVersion> m_versions;
  std::unordered_map<Id, int> m_indexes;
};

}  // namespace

VersionGraph BuildVersionGraph(std::vector<Version> versions) {
  return GraphBuilder(std::move(versions)).Sort();
}

void KeepFirstRows(VersionGraph& graph, std::uint64_t count) {
  if (graph.versions.size() <= count) return;
  graph.versions.erase(graph.versions.begin() + static_cast<std::ptrdiff_t>(count),
                       graph.versions.end());
  for (GraphVersion& version : graph.versions) {
    if (version.parent >= static_cast<int>(count)) version.parent = -1;
  }
}

}  // namespace TalVcs::Kit
