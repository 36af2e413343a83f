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

/// Reads the files and computes the ids of their blobs, on several threads. A file that has gone or
/// became something else has none. Throws `Failure` for the first file that is there and can't be
/// read, and after an interrupt.
std::vector<std::optional<HashedFile>> HashFiles(const Folder& folder,
                                                 const std::vector<std::string>& paths);

}  // namespace Tal
