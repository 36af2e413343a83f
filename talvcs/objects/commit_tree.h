#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace TalVcs {

/// The handle through which a commit reaches its root tree, which may be absent.
///
/// A value: a copy shares the root, and the first edit separates the two. It has no id and isn't
/// stored. The editing operations take write access to the root before they do their work, so also
/// a failed one leaves an empty root in place of none, and a private copy in place of a shared
/// root. `RemoveObject` alone does nothing without a root.
///
/// Threads: like `Tree`.
class TALVCS_API CommitTree {
 public:
  /// A handle without a root.
  CommitTree() noexcept = default;
  /// A handle on `root`, which may be null.
  explicit CommitTree(cow_ptr<Tree> root) noexcept : m_root(std::move(root)) {}

  /// Work like the operations of `Tree` with these names, on a new empty root if there is none.
  cow_ptr<Blob> AddBlob(IRepository* repository, TalStringViewT<WideChar> path, const Blob& blob);
  cow_ptr<Tree> AddTree(IRepository* repository, TalStringViewT<WideChar> path, const Tree& tree);
  cow_ptr<Object> AddObject(IRepository* repository, TalStringViewT<WideChar> path, const Id& id);
  bool RemoveObject(IRepository* repository, TalStringViewT<WideChar> path);

  /// Return what stands at `path`, or null; without a root always null.
  cow_ptr<Blob> GetBlob(TalStringViewT<WideChar> path) const;
  cow_ptr<Tree> GetTree(TalStringViewT<WideChar> path) const;

  /// Returns the root, or null.
  cow_ptr<Tree> GetRoot() const { return m_root; }
  /// Returns the root's id, or the empty id without a root.
  Id GetRootId() const;

  /// Makes `tree` the root, or its stored instance if `repository` holds that id. A null tree makes
  /// the handle one without a root. Nothing is stored.
  void ReplaceRoot(IRepository* repository, cow_ptr<Tree> tree);

  /// True without a root and for a root without entries.
  bool IsEmpty() const noexcept;
  std::optional<Id> GetIdByPath(TalStringViewT<WideChar> path) const;

  /// Returns the paths of all blobs that differ between the two, whichever side has them, sorted. A
  /// null `other` is a handle without a root.
  std::vector<TalStringT<WideChar>> GetBlobDiffs(cow_ptr<CommitTree> other) const;
  std::vector<TalStringT<WideChar>> GetAllBlobPaths() const;
  std::uint64_t GetBlobCount() const;

  /// Reads the tree `id` like `Tree::Deserialize` and makes a handle on it; null if that fails.
  static cow_ptr<CommitTree> Deserialize(const Id& id, IRepository* repository,
                                         Delegate<StreamIO(const Id&)> getter);

 private:
  cow_ptr<Tree> m_root;
};

}  // namespace TalVcs
