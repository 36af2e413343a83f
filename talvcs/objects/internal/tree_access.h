#pragma once

#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/objects/tree.h>

namespace TalVcs {

/// What the library's own sources may do with a tree beyond its public face.
class TreeAccess {
 public:
  static const TreeEntries* Entries(const Tree& tree) noexcept { return tree.m_entries; }

  /// Gives a tree without entries what was built. `former` is as for the builder's `Finish`.
  static void AdoptEntries(Tree& tree, TreeEntriesBuilder& builder, const TreeEntries* former) {
    tree.m_entries = builder.Finish(former);
  }

  /// Puts a stored object into the tree as it is.
  static void SetEntry(Tree& tree, TalStringViewT<WideChar> name, EntryKind kind,
                       const cow_ptr<Object>& child) {
    tree.SetEntry(name, kind, child);
  }
};

}  // namespace TalVcs
