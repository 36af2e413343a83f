#pragma once

#include <talvcs/format/internal/tree_format.h>
#include <talvcs/objects/internal/id_map.h>
#include <talvcs/objects/internal/stream_text.h>
#include <talvcs/objects/tree.h>

#include <vector>

namespace TalVcs {

/// Remembers the results of tree streams that the repository doesn't return for their ids: of
/// unreadable trees, and of trees that got another id because entries were lost.
///
/// A stream is read once in a load. The result of a tree that lacks objects holds as long as none
/// of them is stored: it is outdated when one is, or when the result of a subtree is. The text of
/// such a tree is kept, so that the tree can be read again.
class TreeResults {
 public:
  struct Result {
    cow_ptr<Tree> tree;  // null for an unreadable tree and while it is being read
    StreamText text;     // empty if the tree lacks nothing
    bool lacksObjects = false;
    bool isOutdated = false;
  };

  /// Returns the result for `id`, or null. It is valid until the next change.
  Result* Find(const Id& id);

  /// Begins to read the tree `id`. Until its end it counts as unreadable. Returns the text of its
  /// outdated result, empty if there is none.
  StreamText Begin(const Id& id);
  /// Notes that the tree `id`, which is being read, lacks an object.
  void AddLack(const Id& id, EntryKind kind, const Id& lacked);
  /// Ends reading with a result, which is null for an unreadable tree.
  void Finish(const Id& id, cow_ptr<Tree> tree, const StreamText& text);
  /// Ends reading with a tree that the repository returns for `id`.
  void Forget(const Id& id) { m_results.erase(id); }

  bool LacksAny() const { return !m_dependentsOfBlobs.empty() || !m_dependentsOfTrees.empty(); }
  /// True if any tree lacks this object.
  bool IsLacked(EntryKind kind, const Id& id) const { return Dependents(kind).contains(id); }
  /// Outdates the results of all trees that lack the object, directly or through subtrees. Cost:
  /// each lack is looked at once.
  void NoteStored(EntryKind kind, const Id& id);

 private:
  using Ids = std::vector<Id>;

  void Outdate(Ids trees);
  const IdMap<Ids>& Dependents(EntryKind kind) const;
  IdMap<Ids>& Dependents(EntryKind kind);

  IdMap<Result> m_results;
  // For each lacked object the trees that lack it.
  IdMap<Ids> m_dependentsOfBlobs;
  IdMap<Ids> m_dependentsOfTrees;
};

}  // namespace TalVcs
