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
  Undecided = 3,  ///< a chain calls its next resolver; a merge fails
};

/// The answer about a whole directory that differs between the sides.
enum class TreeConflictChoice : std::uint32_t {
  Descend = 0,  ///< merge it entry by entry
  Left = 1,
  Right = 2,
  Root = 3,
  Undecided = 4,  ///< a chain calls its next resolver; a merge fails
};

/// Decides a conflict. The path leads from the top of the merge to the blob entry or the directory
/// in conflict; it is empty for the top directory, and valid during the call. The trees are those
/// of the whole merge, not of the directory.
///
/// Resolvers are called on the thread of the merge. A merge copies them for every directory, so a
/// resolver with a state must hold it by reference. A merge treats an empty one as `Undecided`.
using ConflictResolver =
    basic_safe_function<ConflictChoice(array_view<const TalStringViewT<WideChar>>, MergeTrees), 1>;
using TreeConflictResolver =
    basic_safe_function<TreeConflictChoice(array_view<const TalStringViewT<WideChar>>, MergeTrees),
                        1>;

/// Reads a time out of a blob; absent if it holds none.
using BlobTimeGetter = basic_safe_function<std::optional<Time>(cow_ptr<Blob>), 1>;

/// The two callbacks of a merge.
struct Resolvers {
  ConflictResolver blobResolver;      ///< Decides a blob that both sides changed differently.
  TreeConflictResolver treeResolver;  ///< Decides each directory whose sides differ.
};

/// Return a resolver that always gives that answer.
TALVCS_API ConflictResolver AlwaysChooseRoot();
TALVCS_API ConflictResolver AlwaysChooseLeft();
TALVCS_API ConflictResolver AlwaysChooseRight();

/// Returns a resolver that asks `first`, and `second` if the first is undecided.
///
/// An empty resolver in a chain returns the value 0, which is `Left` or `Descend`. So an empty
/// `first` is never undecided, and `second` is not called.
TALVCS_API ConflictResolver ChainResolvers(ConflictResolver first, ConflictResolver second);
TALVCS_API TreeConflictResolver ChainResolvers(TreeConflictResolver first,
                                               TreeConflictResolver second);

/// Returns a resolver that takes the side with the later time.
///
/// It searches the directory of the conflict, then the directories above it up to the top. In each
/// it reads the left time and then the right one: the first that `readTime` returns for the blobs
/// at `timeFilePaths`. The first directory in which the times differ decides; a time on one side
/// only is the later one. If there is none, the resolver is undecided.
TALVCS_API ConflictResolver
TimeBasedConflictResolver(std::vector<TalStringT<WideChar>> timeFilePaths, BlobTimeGetter readTime);

}  // namespace TalVcs
