#pragma once

#include <talvcs/export.h>
#include <talvcs/format/object_type.h>
#include <talvcs/foundation/counted_ptr.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/object.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace TalVcs {

class IRepository;
class TreeEntries;
enum class EntryKind;

/// One directory level of a snapshot: blobs and subtrees, each under a name.
///
/// A tree is a value. A copy shares the entries, costs a few words and is independent of its
/// source. The id depends on the entries and not on the order in which they were added. A
/// moved-from tree has no entries but keeps the id and packed form that it had computed.
///
/// The components of a path are separated by "/". Empty components are ignored, so leading,
/// trailing and doubled separators have no effect. A path without components is the empty path.
///
/// Blobs and subtrees are two tables, and one name can be in both. The blob then hides the subtree
/// in the entry list, in the id and in `GetLocalObject`. To replace an entry by one of the other
/// kind, call `RemoveObject` first.
///
/// A handle on an entry counts once for all trees that share it. No function is recursive, so
/// nesting has no limit.
///
/// Threads: no tree may be used by two threads at once, not even for reading, because observers
/// fill caches.
class TALVCS_API Tree : public Object {
 public:
  /// The mode and type words of trees.
  static constexpr TalStringViewT<char> kMode = kTreeMode;
  static constexpr TalStringViewT<char> kType = kTreeType;

  /// A tree of no entries.
  Tree() noexcept;
  Tree(const Tree& other);
  Tree(Tree&& other);
  Tree& operator=(const Tree& other);
  Tree& operator=(Tree&& other);
  ~Tree() override;

  Id GetId() const override;
  TalStringT<char> GetHeader() const override;
  TalStringT<char> GetStoragePrefix() const override;

  /// Returns the entry list: for each entry, in the order of the names, mode, blank, type, blank,
  /// name in UTF-8, a zero byte and the id's 64 characters. Valid until the tree changes or ends.
  const Buffer& GetData() const override;

  /// Returns the packed form like `GetPackedData`, without keeping it in the object.
  Buffer BuildPackedData() const;

  /// Number of blobs plus number of subtrees of this level; a name in both tables counts twice.
  std::uint64_t GetLocalObjectCount() const noexcept;
  std::uint64_t GetLocalBlobCount() const noexcept;
  /// Number of blobs of this level and all below; one reached by two paths counts twice. Cost: one
  /// visit for each different subtree.
  std::uint64_t GetDeepBlobCount() const;
  bool IsEmpty() const noexcept;

  /// Puts `blob` at `path` and makes the missing directories.
  ///
  /// The blob and every tree on the path below this one are stored in `repository`; this tree
  /// itself is changed in place and is not stored. Returns the stored instance, or null, with
  /// nothing changed, if the path is empty or `repository` is null. Cost: a few dozen entries and
  /// the hash of one directory for each component.
  cow_ptr<Blob> AddBlob(IRepository* repository, TalStringViewT<WideChar> path, const Blob& blob);

  /// Puts a copy of `tree` at `path`, like `AddBlob`.
  cow_ptr<Tree> AddTree(IRepository* repository, TalStringViewT<WideChar> path, const Tree& tree);

  /// Puts the stored blob or tree of that id at `path`. Returns null if none is stored or the path
  /// is empty. `repository` must not be null.
  cow_ptr<Object> AddObject(IRepository* repository, TalStringViewT<WideChar> path, const Id& id);

  /// Removes the blob and the subtree at `path`, and every directory on the path that becomes
  /// empty. Returns false, with nothing changed, if there is neither.
  ///
  /// A null `repository` stores nothing: a removal that would leave a changed directory below this
  /// level then changes nothing and still returns true.
  bool RemoveObject(IRepository* repository, TalStringViewT<WideChar> path);

  /// Return the entry of this level under exactly that name, or null.
  cow_ptr<Blob> GetLocalBlob(TalStringViewT<WideChar> name) const;
  cow_ptr<Tree> GetLocalTree(TalStringViewT<WideChar> name) const;
  /// Returns the blob under that name if there is one, else the subtree.
  cow_ptr<Object> GetLocalObject(TalStringViewT<WideChar> name) const;

  /// Return the object at the path, or null. An empty path has no object; it is not this tree.
  cow_ptr<Blob> GetDeepBlob(TalStringViewT<WideChar> path) const;
  cow_ptr<Blob> GetDeepBlob(array_view<const TalStringViewT<WideChar>> components) const;
  cow_ptr<Tree> GetDeepTree(TalStringViewT<WideChar> path) const;
  cow_ptr<Tree> GetDeepTree(array_view<const TalStringViewT<WideChar>> components) const;
  cow_ptr<Object> GetDeepObject(TalStringViewT<WideChar> path) const;
  std::optional<Id> GetIdByPath(TalStringViewT<WideChar> path) const;

  /// Names of this level, sorted by `Compare`: of the blobs; of the subtrees; of the subtrees and
  /// then the blobs, each part sorted in itself.
  std::vector<TalStringT<WideChar>> GetLocalBlobPaths() const;
  std::vector<TalStringT<WideChar>> GetLocalSubtreePaths() const;
  std::vector<TalStringT<WideChar>> GetLocalObjectPaths() const;

  /// Paths of all blobs under this tree, sorted, each once. Blobs under a hidden subtree are
  /// listed.
  std::vector<TalStringT<WideChar>> GetDeepBlobPaths() const;

  /// Return the names of the blobs, or subtrees, of either tree that differ from the entry of the
  /// same name in the other: that is missing, of another kind or has another id. Sorted, each once.
  /// A null `other` is an empty tree. Cost: entries that both trees share are skipped in groups.
  std::vector<TalStringT<WideChar>> GetLocalBlobDiffs(cow_ptr<Tree> other) const;
  std::vector<TalStringT<WideChar>> GetLocalTreeDiffs(cow_ptr<Tree> other) const;

  /// Paths of all blobs under both trees that differ, sorted, each once. Equal subtrees aren't
  /// entered.
  std::vector<TalStringT<WideChar>> GetDeepBlobDiffs(cow_ptr<Tree> other) const;

  /// Reads the packed tree `id` and all below it through `getter`, and stores it in `repository`.
  ///
  /// Returns the stored instance; null if `id` is empty, `repository` is null, the stream is
  /// missing or no packed tree, or it has no entry. An entry that can't be read is left out, so the
  /// tree has another id. Every stream is read once at most.
  static cow_ptr<Tree> Deserialize(const Id& id, IRepository* repository,
                                   Delegate<StreamIO(const Id&)> getter);

 protected:
  void ResetState() override;

 private:
  friend class TreeAccess;
  using Components = array_view<const TalStringViewT<WideChar>>;

  Buffer BuildData() const;
  void AppendRecordsTo(Buffer& target) const;
  cow_ptr<Object> GetDeepObject(Components components) const;
  const Tree* FindTree(Components components) const;
  bool LocalObjectExists(TalStringViewT<WideChar> name) const noexcept;
  void SetEntry(TalStringViewT<WideChar> name, EntryKind kind, const cow_ptr<Object>& child);
  void EraseEntries(TalStringViewT<WideChar> name);

  std::vector<cow_ptr<Tree>> OpenDirectories(Components directories) const;
  void StoreDirectories(IRepository& repository, Components directories,
                        std::vector<cow_ptr<Tree>>& opened);
  template <class T>
  cow_ptr<T> AddAt(IRepository* repository, Components path, const T& object);
  bool RemoveObjectFromTree(IRepository* repository, Components path);

  // Null for no entries. Shared with copies until one of them changes.
  TalUtils::CountedPtr<TreeEntries> m_entries;
  mutable Buffer m_treeData;
};

}  // namespace TalVcs
