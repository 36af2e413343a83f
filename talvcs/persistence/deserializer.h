#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/path_builder.h>

#include <vector>

namespace TalVcs {

class IRepository;

/// Fills a repository from a store, through an `IBlobReader`.
///
/// A load reads what the branches of the store reach, and no other streams. It adds this to what
/// the repository has.
///
/// During a load, the current branch should be one without a head that the store does not have.
/// Each commit starts with the head of the current branch as its parent, and the oldest commit of a
/// history keeps it. So if the current branch has a head, or gets one from the store, the next
/// unrelated history becomes a child of that head: it has new ids, and its branch is not moved. A
/// branch without a head can be given to the constructor of `MemObjectsStorage` and removed after
/// the load. An empty repository needs none of this if the histories have a common root, as
/// `EnsureCommonRootFor` makes.
///
/// Not everything that a `Serializer` wrote can be loaded: `Commit` lists the fields that change,
/// a root without entries is lost, and so is a commit whose parent was removed from the storage by
/// `DeleteCommits`. Check the result of `Deserialize`, and keep the store until it is true.
///
/// Damaged bytes are harmless: of what the repository had, only the heads of the store's branches
/// change. Memory is in proportion to the bytes that are read. The exception is a name with "/" in
/// a tree: each such entry is an edit, and its intermediate trees are stored until a purge. Time
/// grows with the bytes, and with the number of branches times the length of a damaged history.
///
/// The reader is called on the thread of the load and must not change the repository. An exception
/// of the reader passes through, and what was stored until then stays.
class TALVCS_API Deserializer {
 public:
  /// Reads below `rootPath`. `reader` may be null and must outlive the deserializer.
  Deserializer(IBlobReader* reader, const TalStringT<WideChar>& rootPath);
  Deserializer(const Deserializer&) = default;
  Deserializer& operator=(const Deserializer&) = default;
  virtual ~Deserializer();

  /// Loads every branch of the store. Returns true if each has the head that the store names.
  ///
  /// Returns false if any branch has not, after loading the others. A branch whose head cannot be
  /// read stays as it was. If the history or a tree is damaged, the commits are stored under other
  /// ids and the branch is not moved; if it did not exist, it is created at the current head.
  /// Returns false, with nothing read, if the reader or `repository` is null.
  virtual bool Deserialize(IRepository* repository);

 private:
  class Load;

  bool DeserializeRef(Load& load, const TalStringT<WideChar>& name);
  static bool DeserializeBranch(Load& load, const Id& headId);
  StreamIO GetObjectStream(const Id& id) const;
  std::vector<TalStringT<WideChar>> GetBranches();

  IBlobReader* reader;
  PathBuilder pathBuilder;
};

}  // namespace TalVcs
