#pragma once

#include "text.h"

#include <string>
#include <vector>

namespace Tal {

using BlobPtr = TalVcs::cow_ptr<TalVcs::Blob>;
using CommitPtr = TalVcs::cow_ptr<TalVcs::Commit>;
using TreePtr = TalVcs::cow_ptr<TalVcs::Tree>;

/// Returns the root of a commit, or null if there is no commit or no root.
TreePtr RootOf(const CommitPtr& commit);

/// Returns the paths of all blobs of a tree, which may be null.
std::vector<std::string> ListTree(const TreePtr& tree);

/// Returns the blob at `path` of a tree, which may be null; null if there is none.
BlobPtr FindBlob(const TreePtr& tree, const std::string& path);

/// Returns a path at which `tree` has a file and a folder of one name, as a merge can leave behind,
/// or an empty text. Neither a folder nor a store can hold such a tree.
std::string FindFileAndFolder(const TreePtr& tree);

/// Returns `tree` without its empty folders, which a store doesn't keep, or null if nothing is
/// left.
TreePtr WithoutEmptyFolders(TalVcs::IRepository& repository, const TreePtr& tree);

}  // namespace Tal
