#include "merge.h"

#include "repository.h"

#include <algorithm>
#include <iterator>

namespace Model {
namespace {

struct Partition {
  std::vector<Text> conflicts;
  std::vector<Text> sameOnBoth;
  std::vector<Text> leftOnly;
  std::vector<Text> rightOnly;
};

Entry Find(const Handle<Tree>& tree, const Text& name) {
  return tree ? tree->GetDeepObject({name}) : Entry();
}

Partition PartitionDiffs(const MergeTrees& trees, const std::vector<Text>& left,
                         const std::vector<Text>& right) {
  Partition partition;
  std::set_difference(left.begin(), left.end(), right.begin(), right.end(),
                      std::back_inserter(partition.leftOnly));
  std::set_difference(right.begin(), right.end(), left.begin(), left.end(),
                      std::back_inserter(partition.rightOnly));
  std::vector<Text> both;
  std::set_intersection(left.begin(), left.end(), right.begin(), right.end(),
                        std::back_inserter(both));
  for (const Text& name : both) {
    const Entry a = Find(trees.left, name);
    const Entry b = Find(trees.right, name);
    const bool same = (!a && !b) || (a && b && a.GetId() == b.GetId());
    (same ? partition.sameOnBoth : partition.conflicts).push_back(name);
  }
  return partition;
}

void TakeEntry(Repository* repository, Handle<Tree>& result, const Handle<Tree>& source,
               const Text& name) {
  result.write()->RemoveObject(repository, name);
  if (!source) return;
  if (const Handle<Blob> blob = source->GetDeepBlob({name})) {
    result.write()->AddBlob(repository, name, *blob);
  } else if (const Handle<Tree> tree = source->GetDeepTree({name})) {
    result.write()->AddTree(repository, name, *tree);
  }
}

void ApplyPartition(Repository* repository, Handle<Tree>& result, const MergeTrees& trees,
                    const Partition& partition) {
  for (const Text& name : partition.sameOnBoth) TakeEntry(repository, result, trees.left, name);
  for (const Text& name : partition.rightOnly) TakeEntry(repository, result, trees.right, name);
  for (const Text& name : partition.leftOnly) TakeEntry(repository, result, trees.left, name);
}

Handle<Tree> Narrow(const Handle<Tree>& tree, const Text& name) {
  return tree ? tree->GetLocalTree(name) : Handle<Tree>();
}

// What stays the same for all levels of one merge.
struct Merge {
  Repository* repository;
  MergeTrees trees;
  Resolvers resolvers;

  unsigned AskTree(const Components& path) const {
    return resolvers.tree ? resolvers.tree(path, trees) : TreeUndecided;
  }
  unsigned AskBlob(const Components& path) const {
    return resolvers.blob ? resolvers.blob(path, trees) : BlobUndecided;
  }
};

Components Below(Components path, const Text& name) {
  path.push_back(name);
  return path;
}

// Nothing means that the merge failed, a null tree that nothing stands here any more.
std::optional<Handle<Tree>> MergeLevel(const Merge& merge, MergeTrees trees,
                                       const Components& path) {
  if (!trees.left && !trees.right) return Handle<Tree>();
  if (trees.left && trees.right && trees.left->GetId() == trees.right->GetId()) return trees.left;
  switch (merge.AskTree(path)) {
    case TreeLeft:
      return trees.left;
    case TreeRight:
      return trees.right;
    case TreeRoot:
      return trees.root;
    case TreeUndecided:
      return std::nullopt;
    default:
      break;
  }
  if (!trees.root) trees.root = Handle<Tree>(Tree());
  const Partition blobs = PartitionDiffs(trees, trees.root->GetLocalBlobDiffs(trees.left),
                                         trees.root->GetLocalBlobDiffs(trees.right));
  Handle<Tree> result = trees.root;
  for (const Text& name : blobs.conflicts) {
    const unsigned answer = merge.AskBlob(Below(path, name));
    if (answer == BlobUndecided) return std::nullopt;
    if (answer == BlobLeft) TakeEntry(merge.repository, result, trees.left, name);
    if (answer == BlobRight) TakeEntry(merge.repository, result, trees.right, name);
  }
  ApplyPartition(merge.repository, result, trees, blobs);
  const Partition subtrees = PartitionDiffs(trees, trees.root->GetLocalTreeDiffs(trees.left),
                                            trees.root->GetLocalTreeDiffs(trees.right));
  ApplyPartition(merge.repository, result, trees, subtrees);
  for (const Text& name : subtrees.conflicts) {
    const MergeTrees below{Narrow(trees.left, name), Narrow(trees.root, name),
                           Narrow(trees.right, name)};
    const std::optional<Handle<Tree>> merged = MergeLevel(merge, below, Below(path, name));
    if (!merged) return std::nullopt;
    if (*merged) {
      result.write()->AddTree(merge.repository, name, **merged);
    } else {
      result.write()->RemoveObject(merge.repository, name);
    }
  }
  return result;
}

std::optional<std::uint64_t> ReadTimeAt(Handle<Tree> tree, const Components& path,
                                        const std::vector<Text>& files,
                                        const TimeGetter& readTime) {
  if (tree && !path.empty()) tree = tree->GetDeepTree(path);
  if (!tree || !readTime) return std::nullopt;
  for (const Text& file : files) {
    const Handle<Blob> blob = tree->GetDeepBlob(SplitPath(file));
    const std::optional<std::uint64_t> time = blob ? readTime(blob) : std::nullopt;
    if (time) return time;
  }
  return std::nullopt;
}

}  // namespace

Resolver Chain(Resolver first, Resolver second, unsigned undecided) {
  return [=](const Components& path, const MergeTrees& trees) {
    const unsigned answer = first ? first(path, trees) : 0;
    if (answer != undecided) return answer;
    return second ? second(path, trees) : 0;
  };
}

Resolver ByTime(std::vector<Text> paths, TimeGetter readTime) {
  return [=](Components path, const MergeTrees& trees) -> unsigned {
    for (;; path.pop_back()) {
      const auto left = ReadTimeAt(trees.left, path, paths, readTime);
      const auto right = ReadTimeAt(trees.right, path, paths, readTime);
      if (left && (!right || *right < *left)) return BlobLeft;
      if (right && (!left || *left < *right)) return BlobRight;
      if (path.empty()) return BlobUndecided;
    }
  };
}

Handle<Tree> ThreeWayMerge(Repository* repository, const MergeTrees& trees,
                           const Resolvers& resolvers) {
  if (repository == nullptr) return {};
  const Merge merge{repository, trees, resolvers};
  return MergeLevel(merge, trees, {}).value_or(Handle<Tree>());
}

}  // namespace Model
