#pragma once

#include <kit/open/statistics.h>
#include <kit/text/progress.h>
#include <kit/workspace/version.h>

#include <string>

namespace TalVcs::Kit {

/// Options of the functions of `Workspace` that measure.
struct MeasureOptions {
  /// Phases: "history" and "contents"; for branches also "unreferenced".
  Progress progress = {};
};

/// What one version takes in the store.
struct VersionUsage {
  Version version;  ///< The version.
  /// Objects that no other version has, the version itself among them: what its removal would free.
  ObjectTotals own;
  ObjectTotals shared;  ///< Objects that other versions have too.
};

/// What one file or folder takes in the store, in all versions together.
struct PathUsage {
  std::string path;     ///< The path.
  ObjectTotals own;     ///< Objects that are at no other path, in no version.
  ObjectTotals shared;  ///< Objects that are elsewhere too.
};

}  // namespace TalVcs::Kit
