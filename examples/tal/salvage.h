#pragma once

#include "session.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tal {

/// What a salvage has found.
struct SalvageReport {
  std::uint64_t files = 0;
  std::uint64_t branches = 0;
  std::vector<std::string> older;  ///< files of which an older version was taken
  std::vector<std::string> lost;   ///< files and folders of which nothing can be read
};

/// Writes the files of each branch that can be read into a folder of its own below `target`, which
/// must not exist. A file whose newest bytes can't be read is taken from the latest commit in which
/// it can. Links are written as files that have the target. Throws `Failure`.
SalvageReport Salvage(Session& session, const std::string& target);

}  // namespace Tal
