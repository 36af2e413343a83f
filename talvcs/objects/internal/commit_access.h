#pragma once

#include <talvcs/directory/internal/object_source.h>
#include <talvcs/format/internal/commit_format.h>
#include <talvcs/objects/commit.h>

#include <optional>
#include <span>
#include <utility>

namespace TalVcs {

/// What the library's own sources may do with a commit beyond its public face.
class CommitAccess {
 public:
  /// Gives the commit the handle, which may be null, and makes its root the stored instance.
  static void SetTree(Commit& commit, cow_ptr<CommitTree> tree, IRepository* repository) {
    commit.m_tree = std::move(tree);
    commit.RebuildTree(repository);
  }
  static void RebuildTree(Commit& commit, IRepository* repository) {
    commit.RebuildTree(repository);
  }
  /// Returns the handle on the parent, which the commit keeps. An absent parent is read first.
  static const cow_ptr<Commit>& Parent(const Commit& commit) {
    if (commit.IsParentAbsent()) commit.OpenParent();
    return commit.m_parent;
  }
  /// Return what is in memory, or null. Read nothing.
  static const cow_ptr<Commit>& PresentParent(const Commit& commit) noexcept;
  static cow_ptr<Tree> PresentRoot(const Commit& commit);
  /// Return where an absent link leads; null for a link that isn't absent.
  static const ObjectSource* SourceOfParent(const Commit& commit) noexcept;
  static const ObjectSource* SourceOfRoot(const Commit& commit) noexcept;

  /// Announces the absent roots of `commits` to their sources: the caller opens them next. A commit
  /// may be null.
  static void ExpectRoots(std::span<const cow_ptr<Commit>> commits);

  /// Make a link absent, whose object is in the store of `source`. The commit's id stays.
  static void SetAbsentParent(const Commit& commit, const Id& id, ObjectSource& source);
  static void SetAbsentTree(const Commit& commit, const Id& id, ObjectSource& source);
  static void MarkAbsent(Commit& placeholder) noexcept { placeholder.m_isAbsent = true; }

  /// Gives a new commit an empty handle on a root, as one without a root has.
  static void SetNoTree(Commit& commit) { commit.m_tree.write(); }
  static void CacheId(const Commit& commit, const Id& id) noexcept { commit.CacheId(id); }
  /// The id, without a copy; valid until the commit changes.
  static const Id& GetId(const Commit& commit) {
    if (!commit.HasId()) static_cast<const Object&>(commit).GetId();
    return commit.CachedId();
  }

  /// Returns the result of `use`, called with what the commit's text is written from.
  template <class Use>
  static auto WithContent(const Commit& commit, Use use) {
    const Id tree = commit.m_tree ? commit.m_tree->GetRootId() : Id();
    const Id parent = commit.m_parent ? commit.m_parent->GetId() : Id();
    CommitContent content;
    content.treeId = tree.View();
    content.hasParent = static_cast<bool>(commit.m_parent);
    content.parentId = parent.View();
    content.authorName = commit.m_authorName;
    content.authorEmail = commit.m_authorEmail;
    content.description = commit.m_description;
    content.time = commit.m_commitTime;
    content.bias = commit.m_commitTimezoneBias;
    return use(content);
  }

  /// Makes `parent` the parent and stores the commit. The handle becomes the stored instance; other
  /// holders keep the old one.
  static void Rewrite(cow_ptr<Commit>& commit, cow_ptr<Commit> parent, IRepository& repository);

  static TalStringT<WideChar> GetAuthorInfo(TalStringViewT<WideChar> role,
                                            TalStringViewT<WideChar> name,
                                            TalStringViewT<WideChar> email, Time time,
                                            TimeDelta bias) {
    return Commit::GetAuthorInfo(role, name, email, time, bias);
  }
  static std::optional<TalStringT<char>> ParseCommitInfo(const TalStringT<char>& text,
                                                         TalStringViewT<char> key, int& position) {
    return Commit::ParseCommitInfo(text, key, position);
  }
};

}  // namespace TalVcs
