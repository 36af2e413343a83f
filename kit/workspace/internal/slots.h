#pragma once

#include <kit/text.h>
#include <talvcs/objects/tree.h>

#include <string>
#include <vector>

namespace TalVcs::Kit {

/// What stands under a name or path of a tree.
struct Slot {
  enum class Kind { None, File, Folder };

  Kind kind = Kind::None;
  Id id;  // empty for none

  friend bool operator==(const Slot&, const Slot&) = default;
};

/// Returns a tree without entries.
cow_ptr<Tree> EmptyTree();

/// Makes a handle on a copy of the tree.
cow_ptr<Tree> HandleOn(const Tree& tree);

/// Returns what stands at a path, which isn't empty, without reading files.
Slot SlotAt(const Tree& tree, const WideString& path);

/// Returns the subtree of that name, or an empty tree.
cow_ptr<Tree> SubtreeOf(const cow_ptr<Tree>& tree, const WideString& name);

/// Returns the names under which two trees differ, each once.
std::vector<WideString> DifferingNames(const cow_ptr<Tree>& a, const cow_ptr<Tree>& b);

/// Joins the path of a folder, which may be empty, and a name.
std::string JoinedPath(const std::string& folder, const WideString& name);

}  // namespace TalVcs::Kit
