#pragma once

#include "host.h"

#include <kit/store/object_store.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Tal {

/// What a salvage has found.
struct SalvageReport {
  std::uint64_t files = 0;
  std::uint64_t branches = 0;
  std::vector<std::string> tips;   ///< newest commits without a branch: folder, time, summary
  std::vector<std::string> older;  ///< files of which an older version was taken
  std::vector<std::string> lost;   ///< files and folders of which nothing can be read
};

/// Which commits a salvage begins with.
enum class SalvageFrom {
  Branches,  ///< the heads of branches; if none can be read, as below
  Objects,   ///< besides them, every commit in the store that is no commit's parent
};

/// Writes the files of each branch that can be read into a folder of its own below `target`, which
/// must be an empty folder. A file whose newest bytes can't be read is taken from the latest commit
/// in which it can. Links are written as files that have the target. Throws `Failure`.
SalvageReport Salvage(const std::shared_ptr<Kit::IObjectStore>& store,
                      const std::filesystem::path& target, SalvageFrom from);

}  // namespace Tal
