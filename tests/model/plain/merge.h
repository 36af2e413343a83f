#pragma once

#include "objects.h"

#include <functional>

namespace Model {

/// The answers of resolvers, by their numbers.
enum BlobAnswer : unsigned { BlobLeft, BlobRight, BlobRoot, BlobUndecided };
enum TreeAnswer : unsigned { TreeDescend, TreeLeft, TreeRight, TreeRoot, TreeUndecided };

struct MergeTrees {
  Handle<Tree> left;
  Handle<Tree> root;
  Handle<Tree> right;
};

/// Answers a conflict at a path; the numbers are those of `BlobAnswer` or `TreeAnswer`.
using Resolver = std::function<unsigned(const Components&, const MergeTrees&)>;

struct Resolvers {
  Resolver blob;
  Resolver tree;
};

/// Reads a time out of a blob.
using TimeGetter = std::function<std::optional<std::uint64_t>(const Handle<Blob>&)>;

/// Asks `first`, then `second` if the answer was `undecided`. An empty one answers 0.
Resolver Chain(Resolver first, Resolver second, unsigned undecided);

/// Takes the side with the later time in the files at `paths`, from the conflict's place upwards.
Resolver ByTime(std::vector<Text> paths, TimeGetter readTime);

/// Merges three trees. Null if the merge failed or nothing is left.
Handle<Tree> ThreeWayMerge(Repository* repository, const MergeTrees& trees,
                           const Resolvers& resolvers);

}  // namespace Model
