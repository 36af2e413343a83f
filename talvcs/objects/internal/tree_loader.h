#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/internal/blob_loader.h>
#include <talvcs/objects/internal/load_target.h>
#include <talvcs/objects/internal/tree_results.h>
#include <talvcs/objects/tree.h>

#include <cstddef>
#include <unordered_set>
#include <vector>

namespace TalVcs {

/// Reads the packed trees of one load with everything below them, and stores it. No stream is read
/// twice, and no recursion follows the nesting of directories.
///
/// A tree that contains itself, directly or not, is unreadable: the load drops the entry that
/// closes the cycle.
class TreeLoader {
 public:
  using Getter = Delegate<StreamIO(const Id&)>;

  /// `target` must outlive the loader.
  TreeLoader(LoadTarget& target, Getter getter) noexcept
      : m_target(target), m_getter(getter), m_blobs(target, getter) {}

  /// Does what `Tree::Deserialize` says. Shares the entries that the tree has in common with
  /// `previous`, the root of another state, which may be null.
  cow_ptr<Tree> Load(const Id& id, const cow_ptr<Tree>& previous);

  /// Notes a tree that may have been stored by now. Trees that lack it are then read again. Null
  /// does nothing.
  void NoteStored(const cow_ptr<Tree>& stored);

 private:
  struct OpenTree;

  bool Open(const Id& id, const Tree* previous, std::vector<OpenTree>& open);
  bool ReadText(const Id& id, StreamText& text);
  const TreeResults::Result* FindResult(const Id& id);
  void ReadRecords(OpenTree& tree, std::vector<OpenTree>& open);
  bool ReadSubtree(OpenTree& tree, TalStringViewT<char> name, const Id& id,
                   std::vector<OpenTree>& open);
  void ReadBlob(OpenTree& tree, TalStringViewT<char> name, const Id& id);
  void AddSubtree(OpenTree& tree, TalStringViewT<char> name, const Id& id,
                  const cow_ptr<Tree>& subtree);
  cow_ptr<Tree> Close(OpenTree& tree);
  void NoteDirectories(OpenTree& open, TalStringViewT<WideChar> path);
  void NoteStored(const cow_ptr<Blob>& stored);

  LoadTarget& m_target;
  Getter m_getter;
  BlobLoader m_blobs;
  TreeResults m_results;
  // How many bytes of texts may still be read again.
  std::size_t m_bytesToReadAgain = std::size_t{1} << 24;
  // The trees that this load has stored, each with all of its entries.
  std::unordered_set<const Tree*> m_ownTrees;
};

}  // namespace TalVcs
