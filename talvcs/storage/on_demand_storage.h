#pragma once

#include <talvcs/export.h>
#include <talvcs/format/object_type.h>
#include <talvcs/storage/object_reader.h>
#include <talvcs/storage/objects_storage.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace TalVcs {

/// A storage whose objects are read from a store when something asks for them.
///
/// Its tables contain the new objects: those that were committed or edited and aren't saved yet. A
/// stored object is read at its first use and then kept under its id until `Trim`; counts and
/// tables don't include it. Only following a link may read the store: from a tree to an entry, from
/// a commit to its parent or its tree, from a branch to its head. A link that can't be followed
/// throws `ObjectUnavailable`, or what the reader throws, and stays as it was. Every object is
/// checked against its id and must have the form that the library writes.
///
/// A clone shares the objects that were read. Handles on objects may outlive all storages, and
/// their links can still be followed.
///
/// Threads: a storage, its clones and all that was read through them belong to one thread at a
/// time.
class TALVCS_API OnDemandStorage : public IObjectsStorage {
 public:
  /// A branch and the id of its head, empty for none.
  using BranchHead = std::pair<TalStringT<WideChar>, Id>;

  /// Reads through `reader`, which must not be null. `heads` are the branches of the store, each
  /// with the id of its head, or the empty id for none. Nothing is read yet.
  OnDemandStorage(std::shared_ptr<IObjectReader> reader, const std::vector<BranchHead>& heads);
  OnDemandStorage(const OnDemandStorage& other);
  OnDemandStorage& operator=(const OnDemandStorage&) = delete;
  ~OnDemandStorage() override;

  /// Return `storage` as a storage on demand, or null if it is null or of another class.
  ///
  /// Works without type information too. It then calls `GetCommitCount`, so a class that derives
  /// from this one and overrides that function must call the one here.
  static OnDemandStorage* From(IObjectsStorage* storage);
  static const OnDemandStorage* From(const IObjectsStorage* storage);

  std::unique_ptr<IObjectsStorage> Clone() const override;

  /// Return the instance of that id. It is read now if it is neither new nor in memory. Null if the
  /// store has no such object or it is of another type.
  cow_ptr<Commit> GetCommit(const Id& id) const override;
  cow_ptr<Tree> GetTree(const Id& id) const override;
  cow_ptr<Blob> GetBlob(const Id& id) const override;
  void AddCommit(cow_ptr<Commit> commit) override;
  void AddTree(cow_ptr<Tree> tree) override;
  void AddBlob(cow_ptr<Blob> blob) override;

  /// Return the number of new objects of a type, or their table.
  std::uint64_t GetCommitCount() const override;
  std::uint64_t GetTreeCount() const override;
  std::uint64_t GetBlobCount() const override;
  const CommitTable& GetCommits() const override;
  const TreeTable& GetTrees() const override;
  const BlobTable& GetBlobs() const override;

  /// Returns the branches with their heads. Reads all heads.
  const RefTable& GetRefs() const override;
  /// Returns the branches with the ids of their heads, in the order of the names, without reading.
  std::vector<BranchHead> GetHeadIds() const;

  /// A subtree of a tree.
  struct Subtree {
    cow_ptr<Tree> tree;         ///< The directory that it is in; may be null.
    TalStringT<WideChar> name;  ///< Its name there, without "/".
  };

  /// Say what the caller reads next, so that one call of the reader serves all of it: the commits
  /// or the blobs of these ids, the root trees of these commits, these subtrees. What is in memory
  /// isn't read again, and null handles and names that aren't there are skipped. An object that
  /// can't be read now is read again when a link to it is followed. Exceptions of the reader pass
  /// through. Commits and blobs wait packed, up to 8 MB of them: more would be read twice, so a
  /// caller announces large files in portions.
  void ExpectCommits(std::span<const Id> ids);
  void ExpectBlobs(std::span<const Id> ids);
  static void ExpectRoots(std::span<const cow_ptr<Commit>> commits);
  static void ExpectSubtrees(std::span<const Subtree> subtrees);

  /// Puts what `from` has under `name` into `to`, another tree, under the same name, as
  /// `Tree::AddBlob` or `Tree::AddTree` would. Returns its type, or nothing, with `to` unchanged,
  /// if there is no such entry. An object that wasn't read stays unread if both trees are of one
  /// store or `to` is of none; otherwise it is read. `to` itself isn't stored.
  static std::optional<ObjectType> CopyEntry(const Tree& from, TalStringViewT<WideChar> name,
                                             Tree& to);

  void DeleteCommit(cow_ptr<Commit> commit) override;
  /// Removes the new objects that are unused. Reads nothing and doesn't change the store.
  void PurgeUnusedObjects() override;
  bool BranchExist(TalStringViewT<WideChar> name) const override;
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool RemoveBranch(TalStringViewT<WideChar> name) override;
  bool UpdateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> name) const override;
  std::vector<TalStringT<WideChar>> GetCommitBranches(cow_ptr<Commit> commit) const override;

  /// Takes an object that a save must write.
  using UnsavedSink = Delegate<void(const Id& id, const Buffer& packed)>;

  /// Passes every object that a head reaches and that isn't known to be in the store to `sink`,
  /// each before the objects that refer to it. Returns their number. Reads nothing, except objects
  /// of another store that are entries of a tree here.
  std::uint64_t VisitUnsaved(UnsavedSink sink) const;
  /// Call it when the store has all objects that `VisitUnsaved` passed: they count as read from now
  /// on.
  void MarkSaved();

  /// Frees the objects that the store has and that no caller holds. Raw pointers and references to
  /// objects that were read become invalid; handles stay valid.
  void Trim();

 private:
  class TALVCS_NO_EXPORT Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace TalVcs
