#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <talvcs/objects/id.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// What happened to a file between two trees.
enum class TreeChangeKind {
  Added,            ///< Only the second tree has it.
  Removed,          ///< Only the first tree has it.
  Changed,          ///< Both have it with other content.
  Moved,            ///< It has another path and the same content.
  MovedAndChanged,  ///< It has another path and content that is alike.
};

/// One file that differs between two trees.
struct TreeChange {
  TreeChangeKind kind = TreeChangeKind::Changed;  ///< What happened to it.
  std::string path;     ///< The path in the second tree, for `Removed` in the first, in UTF-8.
  std::string oldPath;  ///< The path in the first tree if the file moved, else empty.
  Id before;            ///< The blob in the first tree; empty for `Added`.
  Id after;             ///< The blob in the second tree; empty for `Removed`.
  /// How much of the content both have, in percent of the larger one: 100 for `Moved`, at least
  /// `leastLikeness` for `MovedAndChanged`, else 0.
  unsigned likeness = 0;

  friend bool operator==(const TreeChange&, const TreeChange&) = default;
};

/// Options of `FindTreeChanges`.
struct TreeChangesOptions {
  /// Pairs removed and added files of equal content. Compares ids and reads no content.
  bool findMoves = true;
  /// Pairs removed and added files of like content, after `findMoves`. Reads contents.
  bool findLikeMoves = true;
  /// The likeness from which two files are a pair, in percent; at least 1.
  unsigned leastLikeness = 50;
  /// Most removed files, and most added files, that are read for likeness, in the order of their
  /// paths. The cost of the comparison follows the product of the two numbers.
  std::uint64_t mostCandidates = 200;
  /// Files larger than this are not compared for likeness.
  std::uint64_t mostFileBytes = 1 << 20;
};

/// Returns the files that differ between two trees, sorted by `path`. A null tree has no files.
///
/// Two files of equal content are a pair if one was removed and the other added. Among several,
/// files of the same name are paired first, then files in the order of their paths. Empty files are
/// never paired. Likeness counts the bytes in lines (cut after 256 bytes) that both contents
/// contain, in any order; the pairs of the highest likeness are made first. Folders are not
/// reported, empty ones included. A file that became a folder is removed.
///
/// Equal folders are not read. The names of each folder with a changed file are read. Contents are
/// read for likeness alone. Fails with `Damaged` or `Unavailable` if an object on demand cannot be
/// read.
[[nodiscard]] TALVCS_KIT_API Result<std::vector<TreeChange>> FindTreeChanges(
    const cow_ptr<Tree>& before, const cow_ptr<Tree>& after,
    const TreeChangesOptions& options = {});

}  // namespace TalVcs::Kit
