#include <talvcs/merge/three_way_merge.h>

#include <talvcs/merge/internal/entry_rule.h>
#include <talvcs/objects/object_unavailable.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <optional>
#include <utility>

// One directory is merged in two stages, blobs and then subtrees, each of which goes by names:
//
//   changed on one side only, or on both alike    taken from there
//   changed on both sides, differently            blobs: asked; subtrees: merged
//
// The stages don't know of each other: what the second one writes under a name stands. Directories
// wait on a stack of their own, so that nesting has no limit.

namespace TalVcs {

namespace {

using Name = TalStringT<WideChar>;
using Names = std::vector<Name>;
using Components = array_view<const TalStringViewT<WideChar>>;

/// The names of one stage, each list in ascending order.
struct DiffPartition {
  Names conflicts;
  Names same_on_both;
  Names left_only;
  Names right_only;
};

const TreeEntries* EntriesOf(const cow_ptr<Tree>& tree) {
  return tree ? TreeAccess::Entries(*tree) : nullptr;
}

/// A name whose entries in one stage differ between the root and a side, with these entries.
struct ChangedName {
  TalStringViewT<WideChar> name;
  NamedEntries of_root;
  NamedEntries of_side;
};

/// The names that one side changed, for both stages. The directories must outlive it unchanged.
struct ChangedNames {
  std::vector<ChangedName> blobs;
  std::vector<ChangedName> trees;

  ChangedNames(const cow_ptr<Tree>& root, const cow_ptr<Tree>& side) {
    const auto visit = [this](auto name, const NamedEntries& of_root, const NamedEntries& of_side) {
      if (EntriesDiffer(EntryKind::Blob, of_root, of_side)) {
        blobs.push_back({name, of_root, of_side});
      }
      if (EntriesDiffer(EntryKind::Tree, of_root, of_side)) {
        trees.push_back({name, of_root, of_side});
      }
    };
    VisitUnsharedNames(EntriesOf(root), EntriesOf(side), visit);
  }
};

NamedEntries EntriesUnder(const cow_ptr<Tree>& tree, TalStringViewT<WideChar> name) {
  return EntriesUnder(EntriesOf(tree), name);
}

bool SameTree(const Tree& a, const Tree& b) {
  if (&a == &b) return true;
  const Id id_of_a = a.GetId();
  return id_of_a == b.GetId();
}

/// Walks over both lists together. A name in one of them alone was changed by that side only.
DiffPartition PartitionDiffs(EntryKind stage, const std::vector<ChangedName>& left_changed,
                             const std::vector<ChangedName>& right_changed) {
  DiffPartition partition;
  auto left = left_changed.begin();
  auto right = right_changed.begin();
  while (left != left_changed.end() || right != right_changed.end()) {
    const int order = left == left_changed.end()     ? 1
                      : right == right_changed.end() ? -1
                                                     : CompareNames(left->name, right->name);
    if (order < 0) {
      partition.left_only.emplace_back((left++)->name);
    } else if (order > 0) {
      partition.right_only.emplace_back((right++)->name);
    } else {
      const bool same = DecideEntry(stage, left->of_root, left->of_side, right->of_side) ==
                        EntryDecision::TakeSame;
      (same ? partition.same_on_both : partition.conflicts).emplace_back(left->name);
      ++left;
      ++right;
    }
  }
  return partition;
}

/// A directory that is being merged.
struct Level {
  MergeTrees trees;
  Resolvers resolvers;  // a copy of those of the level above
  cow_ptr<Tree> result;
  Names subtree_conflicts;
  std::size_t next_conflict = 0;
};

class TreeMerge {
 public:
  TreeMerge(IRepository& repository, const MergeTrees& trees)
      : m_repository(repository), m_trees(trees) {}

  cow_ptr<Tree> Run(Resolvers resolvers) {
    std::vector<Level> levels;
    std::optional<cow_ptr<Tree>> done = Enter(m_trees, resolvers, levels);
    while (!levels.empty()) {
      Level& level = levels.back();
      if (level.next_conflict == level.subtree_conflicts.size()) {
        done = std::move(level.result);
        levels.pop_back();
      } else {
        const Name& name = level.subtree_conflicts[level.next_conflict];
        m_path.push_back(name);
        const std::size_t depth = levels.size();
        const Resolvers inherited = level.resolvers;
        done = Enter(Narrow(level.trees, name), inherited, levels);
        if (levels.size() != depth) continue;
      }
      if (!done) return nullptr;
      if (!levels.empty()) PutSubtree(levels.back(), *done);
    }
    return done ? *done : nullptr;
  }

 private:
  // Settles a directory at once, or begins to merge it and puts it on top of `levels`. Without a
  // value, and with nothing put there, the merge has failed.
  std::optional<cow_ptr<Tree>> Enter(const MergeTrees& trees, const Resolvers& resolvers,
                                     std::vector<Level>& levels) {
    if (!trees.left && !trees.right) return cow_ptr<Tree>();
    if (trees.left && trees.right && SameTree(*trees.left, *trees.right)) {
      return trees.left;
    }
    Level level{trees, resolvers, nullptr, {}, 0};
    switch (AskForDirectory(level.resolvers.treeResolver)) {
      case TreeConflictChoice::Left:
        return trees.left;
      case TreeConflictChoice::Right:
        return trees.right;
      case TreeConflictChoice::Root:
        return trees.root;
      case TreeConflictChoice::Undecided:
        return std::nullopt;
      default:
        break;
    }
    if (!level.trees.root) level.trees.root.write();
    if (MergeEntries(level)) levels.push_back(std::move(level));
    return std::nullopt;
  }

  TreeConflictChoice AskForDirectory(const TreeConflictResolver& resolver) const {
    return resolver ? resolver(Components(m_path), m_trees) : TreeConflictChoice::Undecided;
  }

  ConflictChoice AskForBlob(const ConflictResolver& resolver, TalStringViewT<WideChar> name) {
    if (!resolver) return ConflictChoice::Undecided;
    std::vector<TalStringViewT<WideChar>> path = m_path;
    path.push_back(name);
    return resolver(Components(path), m_trees);
  }

  // Does both stages but for the subtrees in conflict. Returns false if a conflict stays undecided.
  bool MergeEntries(Level& level) {
    const MergeTrees& trees = level.trees;
    const ChangedNames left(trees.root, trees.left);
    const ChangedNames right(trees.root, trees.right);
    level.result = trees.root;
    const DiffPartition blobs = PartitionDiffs(EntryKind::Blob, left.blobs, right.blobs);
    for (const Name& name : blobs.conflicts) {
      switch (AskForBlob(level.resolvers.blobResolver, name)) {
        case ConflictChoice::Left:
          TakeEntry(level.result, trees.left, name);
          break;
        case ConflictChoice::Right:
          TakeEntry(level.result, trees.right, name);
          break;
        case ConflictChoice::Undecided:
          return false;
        default:
          break;
      }
    }
    ApplyPartition(level.result, trees, blobs);
    DiffPartition subtrees = PartitionDiffs(EntryKind::Tree, left.trees, right.trees);
    ApplyPartition(level.result, trees, subtrees);
    level.subtree_conflicts = std::move(subtrees.conflicts);
    ExpectSubtrees(trees, level.subtree_conflicts);
    return true;
  }

  // A directory of three sides, and the subtrees that are in conflict.
  struct Conflicts {
    MergeTrees trees;
    Names names;
  };

  // One read of the store serves all subtrees in conflict of a level. The levels below are read as
  // well, before any resolver is asked about them, as the merge itself goes down directory by
  // directory. Nothing is read if the first level is in memory.
  static void ExpectSubtrees(const MergeTrees& trees, const Names& names) {
    std::vector<Conflicts> level{{trees, names}};
    for (;;) {
      std::vector<EntryRef> absent;
      for (const Conflicts& directory : level) AddAbsent(directory, absent);
      if (absent.empty()) return;
      ExpectTrees(absent);
      std::vector<Conflicts> below;
      for (const Conflicts& directory : level) {
        for (const Name& name : directory.names) AddConflictsBelow(directory.trees, name, below);
      }
      level = std::move(below);
    }
  }

  static void AddAbsent(const Conflicts& directory, std::vector<EntryRef>& absent) {
    const MergeTrees& trees = directory.trees;
    for (const cow_ptr<Tree>* tree : {&trees.left, &trees.root, &trees.right}) {
      const TreeEntries* list = EntriesOf(*tree);
      if (list == nullptr || list->Source() == nullptr) continue;
      for (const Name& name : directory.names) {
        const EntryRef entry = TreeEntries::Find(list, name, EntryKind::Tree);
        if (entry.IsAbsent()) absent.push_back(entry);
      }
    }
  }

  static void AddConflictsBelow(const MergeTrees& trees, const Name& name,
                                std::vector<Conflicts>& below) {
    try {
      Conflicts directory{Narrow(trees, name), {}};
      const auto& [left, root, right] = directory.trees;
      directory.names = PartitionDiffs(EntryKind::Tree, ChangedNames(root, left).trees,
                                       ChangedNames(root, right).trees)
                            .conflicts;
      if (!directory.names.empty()) below.push_back(std::move(directory));
    } catch (const ObjectUnavailable&) {
      // The merge fails on it, unless a resolver settles a directory above.
    }
  }

  void ApplyPartition(cow_ptr<Tree>& result, const MergeTrees& trees,
                      const DiffPartition& partition) {
    for (const Name& name : partition.same_on_both) TakeEntry(result, trees.left, name);
    for (const Name& name : partition.right_only) TakeEntry(result, trees.right, name);
    for (const Name& name : partition.left_only) TakeEntry(result, trees.left, name);
  }

  // Makes the result's entry what it is in `source`. Putting an entry overwrites one of its kind,
  // so only one of the other kind has to be removed first.
  void TakeEntry(cow_ptr<Tree>& result, const cow_ptr<Tree>& source, const Name& name) {
    const NamedEntries present = EntriesUnder(result, name);
    const NamedEntries wanted = EntriesUnder(source, name);
    const bool blob = wanted.Blob().HasObject();
    const bool tree = !blob && wanted.Tree().HasObject();
    Tree& target = *result.write();
    if ((present.Blob() && !blob) || (present.Tree() && !tree)) {
      target.RemoveObject(&m_repository, name);
    }
    if (!blob && !tree) return;
    const EntryRef entry = wanted.Local();
    if (entry.IsAbsent()) {
      TreeAccess::SetLike(target, entry);
    } else if (blob) {
      target.AddBlob(&m_repository, name, static_cast<const Blob&>(*entry.Present()));
    } else {
      target.AddTree(&m_repository, name, static_cast<const Tree&>(*entry.Present()));
    }
  }

  void PutSubtree(Level& level, const cow_ptr<Tree>& subtree) {
    const Name& name = level.subtree_conflicts[level.next_conflict];
    if (subtree) {
      level.result.write()->AddTree(&m_repository, name, *subtree);
    } else {
      level.result.write()->RemoveObject(&m_repository, name);
    }
    ++level.next_conflict;
    m_path.pop_back();
  }

  static MergeTrees Narrow(const MergeTrees& trees, const Name& name) {
    const auto below = [&name](const cow_ptr<Tree>& tree) {
      return tree ? tree->GetLocalTree(name) : nullptr;
    };
    return {below(trees.left), below(trees.root), below(trees.right)};
  }

  IRepository& m_repository;
  const MergeTrees& m_trees;
  // Views of the names in the lists of the levels.
  std::vector<TalStringViewT<WideChar>> m_path;
};

}  // namespace

cow_ptr<Tree> ThreeWayMerge(IRepository* repository, MergeTrees trees, Resolvers resolvers) {
  if (repository == nullptr) return nullptr;
  return TreeMerge(*repository, trees).Run(std::move(resolvers));
}

}  // namespace TalVcs
