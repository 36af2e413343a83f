#pragma once

#include <kit/open/internal/tree_walk.h>

#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// Walks everything that branches reach by the records of a store, each object once, and finds what
/// can't be read.
///
/// For each branch the history is read first, newest first, down to a commit that is known. Then
/// the trees of its commits are walked, oldest first. Memory: some 100 bytes for each commit, 40 to
/// 80 for each other object, what is between a root and one folder, and 16 MiB of folders where the
/// hooks ask for previous versions.
class HistoryWalk {
 public:
  /// All arguments must outlive the walk. The report lists up to `mostDamages`.
  HistoryWalk(IObjectStore& store, Reporter& reporter, WalkHooks hooks,
              std::uint32_t mostDamages = HistoryReport::kMostDamages)
      : m_store(store),
        m_reporter(reporter),
        m_hooks(std::move(hooks)),
        m_damages(mostDamages),
        m_trees(store, reporter, m_hooks, m_damages) {}
  HistoryWalk(const HistoryWalk&) = delete;
  HistoryWalk& operator=(const HistoryWalk&) = delete;

  /// Walks the branches. A further call, after a report without damage, walks what wasn't met
  /// before. Fails if the store fails as a whole, and with the error of a hook or of the progress;
  /// an object that can't be read is part of the report.
  Result<HistoryReport> Run(std::span<const Head> heads);

  /// True if the walk has met the id, whether or not its object can be read.
  bool HasMet(const ObjectKey& key) const noexcept {
    return m_commits.Contains(key) || m_trees.Trees().Contains(key) ||
           m_trees.Files().Contains(key);
  }
  const IdMap& Commits() const noexcept { return m_commits; }
  const TreeWalk& Trees() const noexcept { return m_trees; }
  std::uint64_t CountMet() const noexcept {
    return m_commits.GetCount() + m_trees.Trees().GetCount() + m_trees.Files().GetCount();
  }
  /// Returns how many of the damages of the reports are heads that are no ids, so that there is no
  /// object to meet.
  std::uint64_t CountBadHeads() const noexcept { return m_badHeads; }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Node {
    ObjectKey id{};
    ObjectKey root{};
    bool hasRoot = false;
    bool isReadable = true;
    bool isKnown = false;  // not wanted, so that it counts as whole
    std::uint32_t parent = kNone;
    std::uint32_t damage = NumberSets::kEmpty;  // of the commit and all its ancestors
    std::uint64_t commits = 0;                  // readable, from this one on
    std::uint64_t wholeCommits = 0;
  };

  Status ReadHistory(const Head& head);
  Result<bool> TakeCommit(const CommitRecord& commit, bool isWanted, const Head& head);
  Status WalkTrees(std::uint32_t first, const std::string& branch);
  Status FinishCommit(Node& node);
  BranchReport ReportOn(const Head& head) const;

  IObjectStore& m_store;
  Reporter& m_reporter;
  WalkHooks m_hooks;
  DamageList m_damages;
  TreeWalk m_trees;
  IdMap m_commits;  // indexes of nodes
  std::vector<Node> m_nodes;
  std::uint64_t m_badHeads = 0;
};

}  // namespace TalVcs::Kit
