#pragma once

#include <talvcs/repository/repository.h>
#include <tests/support/new_storage.h>
#include <tests/support/objects.h>

#include <memory>
#include <string>
#include <string_view>

namespace TalVcs::Testing {

/// A repository over a new storage with the branch "master".
inline Repository NewRepository() { return Repository(NewStorage()); }

/// Returns a blob's bytes, or "(none)" for a null one.
inline std::string TextOf(const cow_ptr<Blob>& blob) {
  return blob ? Bytes(blob->GetData()) : "(none)";
}

/// Returns "path=bytes" for each blob below a tree, in the order of the paths, separated by blanks;
/// "(none)" for a null tree.
inline std::string ListingOf(const cow_ptr<Tree>& tree) {
  if (!tree) return "(none)";
  std::string listing;
  for (const auto& path : tree->GetDeepBlobPaths()) {
    if (!listing.empty()) listing += ' ';
    listing += Ascii(path) + '=' + TextOf(tree->GetDeepBlob(path));
  }
  return listing;
}

/// Returns the listing of a commit's tree.
inline std::string ListingOf(const cow_ptr<Commit>& commit) {
  if (!commit || !commit->GetTree()) return "(none)";
  return ListingOf(commit->GetTree()->GetRoot());
}

/// Shows the id of the object that a handle holds, or "(none)".
template <class T>
std::string IdOf(const cow_ptr<T>& object) {
  return object ? Ascii(object->GetId()) : "(none)";
}

}  // namespace TalVcs::Testing
