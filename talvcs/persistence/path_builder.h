#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

namespace TalVcs {

/// Computes the paths of a store below a root path, with "/" between components:
///
///     <root>/.vcs/objects/<first characters of an id>/<the others>
///     <root>/.vcs/refs/heads/<name of a branch>
///
/// The constants below are the only place where this layout is written down.
///
/// A root that ends with "/" gives no doubled separator; an empty root gives paths that begin with
/// one. Names aren't looked into: one that holds "/" gives a deeper path.
// Functions are exported one by one. If the whole class were, a program would look for its
// constants in the DLL, which doesn't contain them.
class PathBuilder {
 public:
  /// The name of the folder of a store.
  static constexpr TalStringViewT<WideChar> kStoreFolder{TAL_WIDE(".vcs"), 4};
  /// The name of the folder of the objects in it.
  static constexpr TalStringViewT<WideChar> kObjectsFolder{TAL_WIDE("objects"), 7};
  /// The names of the folder of all references and of the folder of the branches in it.
  static constexpr TalStringViewT<WideChar> kRefsFolder{TAL_WIDE("refs"), 4};
  static constexpr TalStringViewT<WideChar> kHeadsFolder{TAL_WIDE("heads"), 5};
  /// The number of characters of an id that name the folder of an object; the others name its file.
  static constexpr int kFolderDigits = 2;

  /// Computes paths below `rootPath`.
  TALVCS_API explicit PathBuilder(const TalStringT<WideChar>& rootPath);

  /// Return the folder of the store, of its objects and of its branches.
  TALVCS_API TalStringT<WideChar> GetStoragePath() const;
  TALVCS_API static TalStringT<WideChar> GetObjectsPath(const TalStringT<WideChar>& storagePath);
  TALVCS_API static TalStringT<WideChar> GetBranchesPath(const TalStringT<WideChar>& storagePath);
  TalStringT<WideChar> GetObjectsPath() const { return objectsPath; }
  TalStringT<WideChar> GetBranchesPath() const { return branchesPath; }

  /// Return the path of an object; the text isn't checked to be an id.
  TALVCS_API TalStringT<WideChar> GetObjectW(const TalStringT<WideChar>& id) const;
  TALVCS_API TalStringT<WideChar> GetObjectW(const Id& id) const;
  TALVCS_API TalStringT<WideChar> GetBranch(const TalStringT<WideChar>& name) const;

 private:
  TalStringT<WideChar> rootPath;
  TalStringT<WideChar> objectsPath;
  TalStringT<WideChar> branchesPath;
};

}  // namespace TalVcs
