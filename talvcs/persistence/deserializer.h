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
/// It starts from the branches and follows what they reach; other streams are never asked for. What
/// the store holds comes in beside what the repository has. Bytes of any kind are harmless: nothing
/// that the repository had is touched but the heads of branches that the store names. Memory stays
/// in proportion to what the reader gives, but for names that hold "/": each such entry of a tree
/// is an edit, whose intermediate trees are stored until a purge. Time grows with the bytes, and
/// with the number of branches times the length of a history that is damaged.
///
/// The reader is called by the thread that loads. It must not change the repository. An exception
/// of the reader passes through, and what was stored until then stays.
class TALVCS_API Deserializer {
 public:
  /// Reads below `rootPath` with `reader`, which the host owns and which may be null.
  Deserializer(IBlobReader* reader, const TalStringT<WideChar>& rootPath);
  Deserializer(const Deserializer&) = default;
  Deserializer& operator=(const Deserializer&) = default;
  virtual ~Deserializer();

  /// Loads every branch of the store. Returns true if each came in whole, under the id that the
  /// store tells. A branch whose head can't be read stays as it was; one whose history or trees are
  /// damaged comes in under other ids, isn't moved, and gives false; one that didn't exist is made
  /// in that case, at the current head. The other branches are loaded all the same. Null arguments
  /// give false.
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
