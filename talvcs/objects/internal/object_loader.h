#pragma once

#include <talvcs/format/internal/commit_parser.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace TalVcs {

/// Reads packed objects through a getter and stores the trees and blobs in a repository.
///
/// One loader serves one load. It reads each stream once at most for each kind of object, also one
/// that proves unreadable, or whose content turns out to have another id. What asks for itself, by
/// however long a way, counts as unreadable where the circle closes. No recursion follows the
/// nesting of directories.
class ObjectLoader {
 public:
  using Getter = Delegate<StreamIO(const Id&)>;

  ObjectLoader(IRepository* repository, Getter getter);

  /// Says that the commits asked for from now on are a line of history of their own.
  void BeginHistory();
  /// Forgets the commits of the present line of history: the storage has them all.
  void ForgetHistory();

  /// Does what `Commit::Deserialize` tells.
  cow_ptr<Commit> LoadCommit(const Id& id, Id& parentId);
  /// Does what `Tree::Deserialize` tells.
  cow_ptr<Tree> LoadTree(const Id& id);

 private:
  /// Ids in a stranger's store can be any text, and many that the sample hash can't tell apart.
  struct WholeTextHash {
    std::size_t operator()(const Id& id) const noexcept {
      const TalStringViewT<WideChar> text = id.View();
      const auto length = static_cast<std::size_t>(text.length);
      return std::hash<std::basic_string_view<WideChar>>()({text.text, length});
    }
  };
  template <class T>
  using IdMap = std::unordered_map<Id, T, WholeTextHash>;

  struct KnownCommit {
    CommitText text;
    std::uint64_t history = 0;  // in which it was last asked for
  };
  struct OpenTree;

  bool OpenTreeStream(const Id& id, const Tree* reference, std::vector<OpenTree>& open);
  void ReadEntries(OpenTree& tree, std::vector<OpenTree>& open);
  void TakeFormerEntries(OpenTree& tree);
  cow_ptr<Tree> CloseTree(OpenTree& tree);
  cow_ptr<Blob> LoadBlob(const Id& id);
  void ReadBlobWithoutName(const Id& id);
  void AddEntry(OpenTree& tree, TalStringViewT<char> name, const cow_ptr<Blob>& blob,
                const cow_ptr<Tree>& subtree);

  IRepository* m_repository;
  Getter m_getter;
  std::uint64_t m_history = 0;
  std::vector<Id> m_historyIds;
  IdMap<KnownCommit> m_commits;
  // Whether the repository was seen to find what it was given, as one without a storage can't.
  bool m_findsAgain = false;
  // What the streams of these ids gave, if that is nothing, has another id or can't be found again.
  IdMap<cow_ptr<Tree>> m_otherTrees;
  IdMap<cow_ptr<Blob>> m_otherBlobs;
  // The trees that this load has stored, with all of their entries.
  std::unordered_set<const Tree*> m_ownTrees;
  cow_ptr<Tree> m_lastRoot;
};

}  // namespace TalVcs
