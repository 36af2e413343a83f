#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/workspace/internal/workspace_state.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// The shape of all histories that the branches of a repository reach.
///
/// Texts and files stay in the store: a version takes about 100 bytes here, and as many again while
/// the graph is read.
class HistoryGraph {
 public:
  /// The number of a version: its place in the list of all.
  using Index = std::uint32_t;
  static constexpr Index kNone = 0xFFFFFFFF;
  /// In place of a version that no branch reaches.
  static constexpr Index kLost = 0xFFFFFFFE;

  struct Node {
    ObjectKey id{};
    ObjectKey root{};       // zeros without a root
    std::int64_t time = 0;  // in seconds since 1970
    Index parent = kNone;   // kNone or a version
    Index undoes = kNone;   // kNone, kLost or a version
    Index redoes = kNone;   // likewise
    std::uint32_t children = 0;
    bool hasRoot = false;
    bool isMachineMade = false;
    bool isCheckpoint = false;
    bool hasLostMerges = false;  // has merged versions that no branch reaches

    std::chrono::sys_seconds Time() const noexcept {
      return std::chrono::sys_seconds(std::chrono::seconds(time));
    }
  };
  /// A branch of the store, which may be a tag, and its head.
  struct Branch {
    std::string name;
    bool isTag;
    Index head;
  };
  /// A version and one that it has merged.
  using Merge = std::pair<Index, Index>;

  /// Reads all histories. What was read and no caller holds is freed meanwhile.
  static Result<HistoryGraph> Read(WorkspaceState& state, Reporter& reporter);

  /// Each after its parent and after what it merges.
  const std::vector<Node>& Nodes() const noexcept { return m_nodes; }
  const std::vector<Branch>& Branches() const noexcept { return m_branches; }
  const Node& operator[](Index index) const { return m_nodes[index]; }
  Index Count() const noexcept { return static_cast<Index>(m_nodes.size()); }
  /// Return the merges of all versions, sorted by the version that merges, or those of one, in the
  /// order in which it names them; without those that no branch reaches.
  std::span<const Merge> Merges() const noexcept { return m_merges; }
  std::span<const Merge> MergesOf(Index index) const;
  /// Returns the indexes of all versions, the latest first.
  std::vector<Index> ByTime() const;

 private:
  class Reading;

  void Sort();

  std::vector<Node> m_nodes;
  std::vector<Merge> m_merges;  // sorted by the version that merges
  std::vector<Branch> m_branches;
};

/// The versions that come directly after each version: its children, and those that merge it.
class Followers {
 public:
  /// `merges` is sorted by the version that merges.
  Followers(std::span<const HistoryGraph::Node> nodes, std::span<const HistoryGraph::Merge> merges);

  /// Returns the followers of a version in ascending order. One that both follows and merges it is
  /// there twice.
  std::span<const HistoryGraph::Index> Of(HistoryGraph::Index index) const {
    return std::span(m_followers).subspan(m_begins[index], m_begins[index + 1] - m_begins[index]);
  }

 private:
  std::vector<std::uint32_t> m_begins;  // of each version's followers, and the end
  std::vector<HistoryGraph::Index> m_followers;
};

}  // namespace TalVcs::Kit
