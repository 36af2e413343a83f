#pragma once

#include <kit/export.h>
#include <kit/workspace/version.h>

#include <cstdint>
#include <vector>

namespace TalVcs::Kit {

/// A version in its place in a graph. A row is an index into `VersionGraph::versions`.
struct GraphVersion {
  Version version;            ///< The version.
  int parent = -1;            ///< The row of the version before it; -1 if the graph lacks that.
  std::vector<int> children;  ///< The rows of the versions that directly follow it.

  /// True if more than one version directly follows it.
  bool IsFork() const noexcept { return children.size() > 1; }
};

/// Versions with the links between them, a row for each, in an order that suits a list. A value.
struct VersionGraph {
  /// Each version after all that follow it, and otherwise the latest first. Of versions of one
  /// time, the one with the longer history goes first.
  std::vector<GraphVersion> versions;
};

/// Makes the graph of versions, such as those of `Workspace::Log`, in any order. No version may be
/// there twice. A graph holds fewer than 2^31 versions. Cost: n log n.
[[nodiscard]] TALVCS_KIT_API VersionGraph BuildVersionGraph(std::vector<Version> versions);

/// Keeps the first `count` rows of a graph. A version whose parent is removed has no parent
/// afterwards. The children of a kept version all stay, because they are in earlier rows.
TALVCS_KIT_API void KeepFirstRows(VersionGraph& graph, std::uint64_t count);

}  // namespace TalVcs::Kit
