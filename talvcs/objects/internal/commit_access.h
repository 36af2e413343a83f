#pragma once

#include <talvcs/objects/commit.h>

#include <optional>
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
  /// The handle on the parent, which the commit keeps.
  static const cow_ptr<Commit>& Parent(const Commit& commit) noexcept { return commit.m_parent; }
  /// The id, without a copy; valid until the commit changes.
  static const Id& GetId(const Commit& commit) {
    if (!commit.HasId()) static_cast<const Object&>(commit).GetId();
    return commit.CachedId();
  }

  /// Makes `parent` the parent and stores the commit. The handle becomes the stored instance;
  /// whoever else held the old one keeps that.
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
