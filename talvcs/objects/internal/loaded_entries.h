#pragma once

#include <talvcs/directory/internal/previous_entries.h>
#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/tree.h>

#include <memory>

namespace TalVcs {

/// Collects the entries of one tree while its records are read.
///
/// The entries go into a builder as long as the names ascend, as in every stream that the library
/// wrote. From the first other name on, each entry is an edit of the tree.
class LoadedEntries {
 public:
  LoadedEntries() = default;
  /// Takes over entries of `previous`, which may be null and must outlive this object, where the
  /// records are the same.
  explicit LoadedEntries(const Tree* previous) : m_previous(previous) {}

  /// Takes over the entries of the previous version whose records stand at the beginning of `list`.
  /// Returns the number of bytes of these records.
  int TakePrevious(TalStringViewT<char> list);

  /// Adds an entry, either a blob or a subtree. Intermediate directories of a name with "/" are
  /// stored in `repository`.
  void Add(IRepository& repository, const TalStringT<WideChar>& name, const cow_ptr<Blob>& blob,
           const cow_ptr<Tree>& subtree);

  /// Returns the subtree under `name` in the previous version, or null.
  const Tree* PreviousSubtree(TalStringViewT<WideChar> name) const noexcept {
    return m_previous.Subtree(name);
  }

  /// Returns the tree as it is now, which holds its directories. Valid until the next change.
  const Tree& Current();

  /// Returns the tree. There are no more entries to come.
  cow_ptr<Tree> Finish();

 private:
  void EndBuilding();

  std::unique_ptr<TreeEntriesBuilder> m_builder = std::make_unique<TreeEntriesBuilder>();
  cow_ptr<Tree> m_tree;
  TalStringT<WideChar> m_lastName;
  // The previous version of the directory from its first entry after the last name.
  PreviousEntries m_previous;
};

}  // namespace TalVcs
