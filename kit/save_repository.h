#pragma once

#include <kit/export.h>
#include <talvcs/foundation/names.h>

namespace TalVcs {
class IBlobWriter;
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// Stores in the repository what its branches and stored commits reach, and then saves it.
///
/// A `Serializer` writes what the tables of the storage contain. That can be less than the branches
/// reach. After a failed edit, a commit may hold another instance of its tree than the table does,
/// and a purge then removes the table's one. After `DeleteCommits`, the commits above still hold
/// their parents, which no table has. In both cases the store could not be loaded. Here every
/// ancestor, tree and blob that can be reached, and every deleted commit that is still another
/// commit's ancestor, enters the storage first.
///
/// Returns what the `Serializer` returns; a caller with a `DirectoryStore` must then call its
/// `Commit`. Returns false, with the store untouched, if `repository` has no storage or one whose
/// objects are read on demand, which `Save` saves. Cost: the first tree of each history as a whole,
/// and of each later commit what differs from its parent's tree.
TALVCS_KIT_API bool SaveRepository(IRepository& repository, IBlobWriter& writer,
                                   const TalStringT<WideChar>& rootPath);

/// Does the first half alone: stores what the branches and the stored commits reach. False, with
/// nothing changed, without a storage and for one whose objects are read on demand.
TALVCS_KIT_API bool StoreReachable(IRepository& repository);

}  // namespace TalVcs::Kit
