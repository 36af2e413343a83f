#pragma once

#include "folder.h"

#include <optional>
#include <string>
#include <vector>

namespace Tal {

/// The id that a file has now, and what the system knew before it was read.
struct HashedFile {
  TalVcs::Id id;
  FileStat stat;
};

/// Reads the files and computes the ids of their blobs, on several threads. A file that can't be
/// read any more has none. Throws `Failure` after an interrupt.
std::vector<std::optional<HashedFile>> HashFiles(const Folder& folder,
                                                 const std::vector<std::string>& paths);

}  // namespace Tal
