#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace TalVcs {

/// The three trees of a merge, each of which may be null.
struct MergeTrees {
  cow_ptr<Tree> left;   ///< of the current head's side
  cow_ptr<Tree> root;   ///< of the common ancestor
  cow_ptr<Tree> right;  ///< of the incoming side
};

/// The answer about one blob entry that both sides changed differently: whose entry to take.
enum class ConflictChoice : std::uint32_t {
  Left = 0,
  Right = 1,
  Root = 2,
  Undecided = 3,  ///< a chain asks on; a merge that gets this answer fails
};

/// The answer about a whole directory that differs between the sides.
enum class TreeConflictChoice : std::uint32_t {
  Descend = 0,  ///< merge it entry by entry
  Left = 1,
  Right = 2,
  Root = 3,
  Undecided = 4,  ///< a chain asks on; a merge that gets this answer fails
};

/// Decides a conflict. The path leads from the top of the merge to the conflict: it ends with the
/// name of the blob entry, or names the directory and is empty for the top. The trees are those of
/// the whole merge. The path is valid during the call.
///
/// Resolvers run on the merging thread. A merge copies them for every directory, so one that counts
/// or remembers keeps that behind a reference. An empty one counts as `Undecided` in a merge.
using ConflictResolver =
    basic_safe_function<ConflictChoice(array_view<const TalStringViewT<WideChar>>, MergeTrees), 1>;
using TreeConflictResolver =
    basic_safe_function<TreeConflictChoice(array_view<const TalStringViewT<WideChar>>, MergeTrees),
                        1>;

/// Reads a time out of a blob; absent if it holds none.
using BlobTimeGetter = basic_safe_function<std::optional<Time>(cow_ptr<Blob>), 1>;

/// The two callbacks of a merge.
struct Resolvers {
  ConflictResolver blobResolver;
  TreeConflictResolver treeResolver;
};

/// Return a resolver that always gives that answer.
TALVCS_API ConflictResolver AlwaysChooseRoot();
TALVCS_API ConflictResolver AlwaysChooseLeft();
TALVCS_API ConflictResolver AlwaysChooseRight();

/// Returns a resolver that asks `first`, and `second` if the first is undecided.
///
/// An empty link answers with the value 0, `Left` or `Descend`, so an empty `first` is never
/// undecided.
TALVCS_API ConflictResolver ChainResolvers(ConflictResolver first, ConflictResolver second);
TALVCS_API TreeConflictResolver ChainResolvers(TreeConflictResolver first,
                                               TreeConflictResolver second);

/// Returns a resolver that takes the side with the later time.
///
/// In the conflict's directory, then in the ones above it up to the top, it looks for a blob at
/// each of `timeFilePaths` on both sides and asks `readTime`, the first time found counting. A time
/// on one side only decides for that side; the nearest directory whose times differ decides.
/// Without any it is undecided.
TALVCS_API ConflictResolver
TimeBasedConflictResolver(std::vector<TalStringT<WideChar>> timeFilePaths, BlobTimeGetter readTime);

}  // namespace TalVcs
