#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/merge/resolvers.h>

namespace TalVcs {

class IRepository;

/// Combines two changed trees with their common ancestor.
///
/// An entry that one side changed, or both in the same way, is taken from there. The tree resolver
/// is asked for each directory that differs between the sides, the topmost first, the blob resolver
/// for each blob entry that both sides changed differently, in the order of the names. A null root
/// is an empty tree.
///
/// Returns the merged tree, which may be one of the given ones and needn't be stored yet. Returns
/// null if `repository` is null, if a resolver is needed and empty or undecided, if it chooses for
/// the topmost directory a tree that is null, or if both sides are null. The given trees never
/// change; objects that were stored on the way stay until a purge. An exception of a resolver
/// passes through.
TALVCS_API cow_ptr<Tree> ThreeWayMerge(IRepository* repository, MergeTrees trees,
                                       Resolvers resolvers);

}  // namespace TalVcs
