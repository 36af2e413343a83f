#include "history.h"

#include <algorithm>
#include <queue>
#include <tuple>
#include <unordered_map>

namespace Tal {
namespace {

/// Collects versions, each once, with their links by index.
class Collector {
 public:
  /// Takes versions in any order.
  explicit Collector(std::vector<Kit::Version> versions) {
    for (Kit::Version& version : versions) {
      std::string id = IdOf(version);
      m_indices.emplace(id, static_cast<int>(m_commits.size()));
      m_commits.push_back({std::move(version), std::move(id), -1, {}});
    }
    for (int index = 0; index < static_cast<int>(m_commits.size()); ++index) {
      const auto parent = m_indices.find(ToUtf8(At(index).version.parent));
      if (parent != m_indices.end()) Link(index, parent->second);
    }
  }

  /// Returns the commits in their final order.
  std::vector<HistoryCommit> Sort() {
    using Key = std::tuple<std::int64_t, int, int>;  // time, depth, index
    const std::vector<int> depths = Depths();
    std::priority_queue<Key> ready;
    std::vector<int> missing(m_commits.size());
    const auto push = [&](int index) {
      ready.emplace(At(index).version.time.time_since_epoch().count(), depths[Place(index)], index);
    };
    for (int index = 0; index < static_cast<int>(m_commits.size()); ++index) {
      missing[Place(index)] = static_cast<int>(At(index).children.size());
      if (missing[Place(index)] == 0) push(index);
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
  static std::size_t Place(int index) { return static_cast<std::size_t>(index); }
  HistoryCommit& At(int index) { return m_commits[Place(index)]; }

  void Link(int child, int parent) {
    At(child).parent = parent;
    At(parent).children.push_back(child);
  }

  std::vector<int> Depths() {
    std::vector<int> depths(m_commits.size(), -1);
    std::vector<int> path;
    for (int index = 0; index < static_cast<int>(m_commits.size()); ++index) {
      int at = index;
      for (; at >= 0 && depths[Place(at)] < 0; at = At(at).parent) path.push_back(at);
      int depth = at < 0 ? -1 : depths[Place(at)];
      for (; !path.empty(); path.pop_back()) depths[Place(path.back())] = ++depth;
    }
    return depths;
  }

  std::vector<HistoryCommit> Reordered(const std::vector<int>& order) {
    std::vector<int> places(order.size());
    for (std::size_t place = 0; place < order.size(); ++place)
      places[Place(order[place])] = static_cast<int>(place);
    std::vector<HistoryCommit> sorted;
    sorted.reserve(order.size());
    for (const int index : order) {
      HistoryCommit& commit = sorted.emplace_back(std::move(At(index)));
      if (commit.parent >= 0) commit.parent = places[Place(commit.parent)];
      for (int& child : commit.children) child = places[Place(child)];
    }
    return sorted;
  }

  std::vector<HistoryCommit> m_commits;
  std::unordered_map<std::string, int> m_indices;
};

/// Returns true if a version is one that the options ask for.
bool Fits(Session& session, const Kit::Version& version, const Kit::LogOptions& options) {
  if (!options.author.empty() && version.author != options.author) return false;
  if (options.since && version.time < *options.since) return false;
  if (options.until && version.time > *options.until) return false;
  if (options.path.empty()) return true;
  const auto at = [&](const FileTree& files) {
    const auto id =
        files.GetTree() ? files.GetTree()->GetIdByPath(ToWide(options.path)) : std::nullopt;
    return id ? ToUtf8(*id) : std::string();
  };
  return at(session.FilesOf(version.id)) != at(session.FilesBefore(version));
}

}  // namespace

std::string IdOf(const Kit::Version& version) { return ToUtf8(version.id); }

std::vector<Kit::Head> ListBranches(Session& session) {
  std::vector<Kit::Head> branches = session.Document().GetBranches();
  const std::string current = session.Branch();
  if (!session.Head()) branches.push_back({current, TalVcs::Id()});
  std::sort(branches.begin(), branches.end(), [&](const Kit::Head& a, const Kit::Head& b) {
    return std::make_pair(a.name != current, a.name) < std::make_pair(b.name != current, b.name);
  });
  return branches;
}

std::vector<Kit::Version> ListVersions(Session& session, const Kit::Version& start,
                                       Kit::LogOptions options) {
  // The log goes on after a version. The first one is looked for alone, among its own ancestors.
  std::vector<Kit::Version> versions;
  const auto most = options.limit;
  options.branch = "";
  options.after = TalVcs::Id();
  if (const std::optional<Kit::Version> head = session.Head(); head && head->id == start.id)
    return session.Document().Log(options).value();
  if (Fits(session, start, options)) versions.push_back(start);
  if (versions.size() == most) return versions;
  options.limit = most - versions.size();
  options.after = start.id;
  for (Kit::Version& version : session.Document().Log(options).value())
    versions.push_back(std::move(version));
  return versions;
}

History BuildHistory(Session& session, const std::optional<Kit::Version>& start) {
  if (start) return {Collector(ListVersions(session, *start, {.limit = UINT64_MAX})).Sort()};
  return {
      Collector(session.Document().Log({.allBranches = true, .limit = UINT64_MAX}).value()).Sort()};
}

}  // namespace Tal
