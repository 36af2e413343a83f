#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/workspace/internal/message.h>
#include <kit/workspace/internal/workspace_state.h>

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// All versions that the branches of a repository reach.
class HistoryGraph {
 public:
  /// A version. Others are indexes into the list of all.
  struct Node {
    cow_ptr<Commit> commit;
    Id id;
    AnnotatedMessage message;
    std::optional<std::size_t> parent;
    std::vector<std::size_t> merges;  // of those that a branch reaches
    std::size_t children = 0;
  };
  /// A branch of the store, which may be a tag, and its head.
  struct Branch {
    std::string name;
    bool isTag;
    std::size_t head;
  };

  /// Reads all histories.
  static Result<HistoryGraph> Read(WorkspaceState& state, Reporter& reporter);

  /// Each after its parent and after what it merges.
  const std::vector<Node>& Nodes() const noexcept { return m_nodes; }
  const std::vector<Branch>& Branches() const noexcept { return m_branches; }
  const Node& operator[](std::size_t index) const { return m_nodes[index]; }
  /// Returns the index of a version, or nothing if no branch reaches it.
  std::optional<std::size_t> Find(const Id& id) const;
  std::chrono::sys_seconds TimeOf(std::size_t index) const;
  /// Returns the indexes of all versions, the latest first.
  std::vector<std::size_t> ByTime() const;

 private:
  Status AddHistory(const cow_ptr<Commit>& head, Reporter& reporter);
  void Link();
  void Sort();

  std::vector<Node> m_nodes;
  std::unordered_map<Id, std::size_t> m_indexes;
  std::vector<Branch> m_branches;
};

}  // namespace TalVcs::Kit
