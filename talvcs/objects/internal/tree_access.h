#pragma once

#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/objects/tree.h>

#include <utility>

namespace TalVcs {

/// What the library's own sources may do with a tree beyond its public face.
class TreeAccess {
 public:
  static const TreeEntries* Entries(const Tree& tree) noexcept { return tree.m_entries.get(); }

  /// Gives a tree without entries what was built. `previous` is as for the builder's `Finish`.
  static void AdoptEntries(Tree& tree, TreeEntriesBuilder& builder, const TreeEntries* previous) {
    tree.m_entries = builder.Finish(previous);
  }

  /// Gives a new tree, whose id is known, its entries.
  static void Restore(Tree& tree, const Id& id, TreeEntries::Ptr list) noexcept {
    tree.m_entries = std::move(list);
    tree.CacheId(id);
  }

  /// Puts an entry of another tree into this one, under its name; an absent one stays absent where
  /// that is possible.
  static void SetLike(Tree& tree, const EntryRef& entry) {
    TreeEntries::SetLike(tree.m_entries, entry);
    tree.ResetState();
  }
};

}  // namespace TalVcs
