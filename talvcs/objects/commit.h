#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/object.h>

#include <optional>
#include <vector>

namespace TalVcs {

/// A state of the tree with its author, time, description and at most one parent; and the buffer in
/// which a host prepares the next one.
///
/// A host makes a commit over a repository, edits it by path, and hands it to
/// `IRepository::DoCommit`, which stores a copy. Each edit stores the new trees and blobs at once;
/// they stay until a purge finds that nothing uses them. A commit keeps its whole ancestry and all
/// its trees and blobs alive, with or without a storage.
///
/// The id covers the tree's id, the parent's id and all fields. When a store is loaded, only the
/// first line of a description comes back, a name must not hold "<" nor an e-mail ">", a bias of
/// less than an hour loses its sign, seconds have 32 bits, and a commit without a parent must not
/// have the text "parent " in its author or description. Nothing checks this when committing.
///
/// A value: a copy shares tree and parent and takes the caches along. Histories of any length are
/// hashed and destroyed without recursion.
///
/// Threads: no commit may be used by two threads at once, because observers fill caches.
class TALVCS_API Commit : public Object {
 public:
  /// A commit without tree, parent and texts, at the zero instant.
  Commit();

  /// A commit on top of the head of the repository's current branch, as the next constructor makes
  /// it. A null `repository` gives no head.
  Commit(IRepository* repository, bool amend);

  /// A commit that follows `head`, or takes its place if `amend` is true.
  ///
  /// It shares the head's tree. To follow, it has the head as its parent and no texts; to amend, it
  /// has the head's parent and the head's author, e-mail and description. A null head gives a
  /// commit without a parent, with an empty `CommitTree`.
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

  /// Returns the packed form like `GetPackedData`, without keeping it in the object.
  Buffer BuildPackedData() const;

  cow_ptr<Commit> GetParent() const {
    if (IsParentAbsent()) OpenParent();
    return m_parent;
  }
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

  /// Set a field, as it is, and drop the caches.
  void SetParent(cow_ptr<Commit> parent);
  void SetDescription(const TalStringT<WideChar>& description);
  void SetAuthorName(const TalStringT<WideChar>& name);
  void SetAuthorEmail(const TalStringT<WideChar>& email);
  void SetCommitTime(const Time& time);
  void SetCommitTimezoneBias(const TimeDelta& bias);

  /// Returns the blob at `path`, or null.
  cow_ptr<Blob> GetBlob(TalStringViewT<WideChar> path) const;
  /// Returns a new handle on the subtree at `path`, whose edits don't touch this commit, or null.
  cow_ptr<CommitTree> GetTree(TalStringViewT<WideChar> path) const;

  /// Puts `blob` at `path` and stores it with all trees up to the root. Returns the stored
  /// instance, or null if the path is empty or `repository` is null; an absent root is then an
  /// empty one, and what was cached stays cached.
  cow_ptr<Blob> AddBlob(IRepository* repository, TalStringViewT<WideChar> path, const Blob& blob);
  /// Puts the stored object of that id at `path`, likewise. `repository` must not be null.
  cow_ptr<Object> AddObject(IRepository* repository, TalStringViewT<WideChar> path, const Id& id);
  /// Removes what stands at `path` with the directories that this leaves empty. Returns false, with
  /// nothing changed, if nothing stands there.
  bool RemoveObject(IRepository* repository, TalStringViewT<WideChar> path);
  /// Makes `tree`, or its stored instance, the root, and stores it. Unlike the other edits it keeps
  /// the caches: `GetId` answers as before until a setter or `DoCommit` drops them.
  void ReplaceRoot(IRepository* repository, cow_ptr<Tree> tree);

  /// Makes each of `commits`, which are ordered newest first, the child of the one behind it.
  ///
  /// Each gets a new id and is stored in `repository`, oldest first, and the list then holds the
  /// stored instances. The last one keeps its parent; if it is null, a default-made commit takes
  /// its place. A null elsewhere splits the list: neither it nor the one in front of it is touched.
  /// Returns false, with nothing changed, for a null `repository` or an empty list.
  static bool MakeCommitLinksInOrder(std::vector<cow_ptr<Commit>>& commits,
                                     IRepository* repository);

  /// Reads the packed commit `id` and its trees and blobs through `getter`.
  ///
  /// Returns the stored commit if `repository` holds the id, with `parentId` left alone. Otherwise
  /// sets `parentId` to the parent's id, or to the empty one, and returns a commit that isn't
  /// stored yet and has no link to that parent. Returns null if `id` is empty, `repository` is
  /// null, the stream is missing or no packed commit.
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
  void KeepAllCaches() const;
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
