#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/object.h>

#include <optional>
#include <vector>

namespace TalVcs {

/// A snapshot (its root) with an author, a time, a description and at most one parent. Also the
/// buffer in which a host prepares the next one.
///
/// A host makes a commit over a repository, edits it by path, and hands it to
/// `IRepository::DoCommit`, which stores a copy. Each edit stores the new trees and blobs at once;
/// they stay until a purge finds that nothing uses them. A commit keeps its whole ancestry and all
/// its trees and blobs alive, with or without a storage.
///
/// The id covers the tree's id, the parent's id and all fields.
///
/// Not every commit keeps its id when a `Deserializer` loads it: a description loses all lines but
/// the first, a name is cut at "<" and an e-mail at ">", a negative bias of less than an hour loses
/// its sign, seconds have 32 bits, a root without entries is lost, and the text "parent " in the
/// author or description of a commit without a parent is read as its parent. `DoCommit` does not
/// check this. A store that is opened on demand returns all of these commits unchanged.
///
/// A value: a copy shares the tree and the parent, and copies what is cached. Histories of any
/// length are hashed and destroyed without recursion.
///
/// Threads: no commit may be used by two threads at once, because observers fill caches.
class TALVCS_API Commit : public Object {
 public:
  /// Makes a commit without tree, parent and texts, at the time 0.
  Commit();

  /// Does what the next constructor does, with the head of the repository's current branch. A null
  /// `repository` counts as one without a head.
  Commit(IRepository* repository, bool amend);

  /// Makes a commit that follows `head`, or that takes its place if `amend` is true.
  ///
  /// Both share the head's tree. A commit that follows has the head as its parent and no texts. One
  /// that amends has the parent, author, e-mail and description of the head. With a null head the
  /// commit has no parent and an empty `CommitTree`.
  Commit(cow_ptr<Commit> head, bool amend);

  Commit(const Commit& other);
  Commit(Commit&& other);
  Commit& operator=(const Commit& other);
  Commit& operator=(Commit&& other);
  ~Commit() override;

  Id GetId() const override;
  TalStringT<char> GetHeader() const override;
  TalStringT<char> GetStoragePrefix() const override;

  /// Returns the commit's text in UTF-8, valid until the commit changes or ends.
  const Buffer& GetData() const override;

  /// Returns the packed form like `GetPackedData`, but does not cache it.
  Buffer BuildPackedData() const;

  /// Return a field. If the commit was read on demand, the parent and the tree may be read from the
  /// store now; these functions throw `ObjectUnavailable` if that fails.
  cow_ptr<Commit> GetParent() const {
    if (IsParentAbsent()) OpenParent();
    return m_parent;
  }
  /// Returns the description. The spelling of the name is part of the interface.
  TalStringT<WideChar> GetDesciption() const { return m_description; }
  TalStringT<WideChar> GetAuthorName() const { return m_authorName; }
  TalStringT<WideChar> GetAuthorEmail() const { return m_authorEmail; }
  Time GetCommitTime() const { return m_commitTime; }
  TimeDelta GetCommitTimezoneBias() const { return m_commitTimezoneBias; }
  cow_ptr<CommitTree> GetTree() const {
    if (m_isTreeAbsent) OpenTree();
    return m_tree;
  }
  bool IsAmend() const { return m_isAmend; }

  /// Set a field without a check. The id and the packed form are no longer cached.
  void SetParent(cow_ptr<Commit> parent);
  void SetDescription(const TalStringT<WideChar>& description);
  void SetAuthorName(const TalStringT<WideChar>& name);
  void SetAuthorEmail(const TalStringT<WideChar>& email);
  void SetCommitTime(const Time& time);
  void SetCommitTimezoneBias(const TimeDelta& bias);

  /// Returns the blob at `path`, or null.
  cow_ptr<Blob> GetBlob(TalStringViewT<WideChar> path) const;
  /// Returns a new handle on the subtree at `path`, or null. Its edits do not change this commit.
  cow_ptr<CommitTree> GetTree(TalStringViewT<WideChar> path) const;

  /// Puts `blob` at `path` and stores it with all trees up to the root. Returns the canonical
  /// instance. Returns null if the path is empty or `repository` is null; then a commit without a
  /// root has an empty one, and what was cached stays cached.
  cow_ptr<Blob> AddBlob(IRepository* repository, TalStringViewT<WideChar> path, const Blob& blob);
  /// Puts the stored object with that id at `path`, like `AddBlob`. `repository` must not be null.
  cow_ptr<Object> AddObject(IRepository* repository, TalStringViewT<WideChar> path, const Id& id);
  /// Removes the entry at `path`, and the directories that this leaves empty. Returns false, with
  /// nothing changed, if there is no such entry.
  bool RemoveObject(IRepository* repository, TalStringViewT<WideChar> path);
  /// Makes the canonical instance of `tree` the root, and stores `tree` if there is none. Unlike
  /// the other edits it drops nothing that is cached: `GetId` returns the same id until a setter or
  /// `DoCommit` is called.
  void ReplaceRoot(IRepository* repository, cow_ptr<Tree> tree);

  /// Makes each of `commits`, which are ordered newest first, the child of the next one.
  ///
  /// Each gets a new id and is stored in `repository`, the oldest first. The list then holds the
  /// canonical instances. The last commit keeps its parent; if it is null, a default-made commit
  /// takes its place. A null elsewhere splits the list: it stays, and the commit before it is not
  /// changed. Returns false, with nothing changed, for a null `repository` or an empty list.
  static bool MakeCommitLinksInOrder(std::vector<cow_ptr<Commit>>& commits,
                                     IRepository* repository);

  /// Reads the packed commit `id` with its trees and blobs through `getter`.
  ///
  /// Returns the stored commit, and leaves `parentId` unchanged, if `repository` has the id.
  /// Otherwise sets `parentId` to the id of the parent, or to the empty id, and returns a commit
  /// that is not stored. Its parent is the head of the current branch, as for every new commit; the
  /// caller sets the right one. Returns null if `id` is empty, `repository` is null, or the stream
  /// is missing or not a packed commit.
  static cow_ptr<Commit> Deserialize(const Id& id, Id& parentId, IRepository* repository,
                                     Delegate<StreamIO(const Id&)> getter);

 protected:
  void ResetState() override;

 private:
  friend class CommitAccess;

  void ResetPropertiesForAmend(const Commit& head);
  void RebuildTree(IRepository* repository);
  void FinishEdit(IRepository* repository);
  bool HasRoot() const noexcept;
  // Reads what the parent says, which is what a walk reads next anyway.
  bool IsParentAbsent() const noexcept {
    return m_parent && !m_parent->m_parent && m_parent->m_isAbsent;
  }
  void OpenParent() const;
  void OpenTree() const;
  void CompleteAllCaches() const;
  void ComputeIdsOfParents() const;
  Buffer BuildText() const;

  static TalStringT<WideChar> GetAuthorInfo(TalStringViewT<WideChar> role,
                                            TalStringViewT<WideChar> name,
                                            TalStringViewT<WideChar> email, Time time,
                                            TimeDelta bias);
  static std::optional<TalStringT<char>> ParseCommitInfo(const TalStringT<char>& text,
                                                         TalStringViewT<char> key, int& position);

  // Opening an absent link fills it.
  mutable cow_ptr<CommitTree> m_tree;
  mutable cow_ptr<Commit> m_parent;
  TalStringT<WideChar> m_description;
  TalStringT<WideChar> m_authorName;
  TalStringT<WideChar> m_authorEmail;
  Time m_commitTime;
  TimeDelta m_commitTimezoneBias;
  bool m_isAmend = false;
  bool m_isAbsent = false;              // only in a placeholder for a parent
  mutable bool m_isTreeAbsent = false;  // the root is a placeholder
  mutable Buffer m_data;                // empty while not computed: no text is empty
};

}  // namespace TalVcs
