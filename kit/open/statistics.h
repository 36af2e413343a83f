#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Options of `Statistics`.
struct StatisticsOptions {
  /// Phases: "history", "contents", "unreferenced".
  Progress progress = {};
};

/// A number of objects and the bytes of their packed forms.
struct ObjectTotals {
  std::uint64_t count = 0;      ///< The number of objects.
  std::uint64_t sizeBytes = 0;  ///< The bytes of all their packed forms.

  friend bool operator==(const ObjectTotals&, const ObjectTotals&) = default;
};

/// What one branch reaches.
struct BranchStatistics {
  std::string name;  ///< The name of the branch.
  /// Length of the history.
  std::uint64_t commits = 0;
  /// Objects that no other branch reaches: what removing the branch and a clean-up would free.
  ObjectTotals own;
  /// Objects that other branches reach too.
  ObjectTotals shared;
};

/// What is in a store. Each object counts once in each figure.
struct StoreStatistics {
  /// What branches reach, by type.
  ObjectTotals commits;
  ObjectTotals trees;
  ObjectTotals blobs;
  /// In the order of the names.
  std::vector<BranchStatistics> branches;
  /// What no branch was found to reach.
  ObjectTotals unreferenced;
  /// Objects that branches reach and that can't be read. They count in no other figure. Objects
  /// that only they name count as unreferenced.
  std::uint64_t unreadable = 0;
};

/// Counts what is in a store.
///
///     const StoreStatistics statistics = Statistics(store).value();
///     for (const BranchStatistics& branch : statistics.branches) {
///       std::cout << branch.name << ' ' << branch.own.sizeBytes << '\n';
///     }
///
/// Sizes are those of packed forms; a store that compresses takes less. No file is read. Each
/// commit and folder is read once, except that a folder which several branches reach through
/// different commits may be read once for each.
///
/// Fails as the store does, and with `Cancelled`. Memory: as for `Verify`.
TALVCS_KIT_API Result<StoreStatistics> Statistics(IObjectStore& store,
                                                  const StatisticsOptions& options = {});

}  // namespace TalVcs::Kit
