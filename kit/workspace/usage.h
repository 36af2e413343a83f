#pragma once

#include <kit/open/statistics.h>
#include <kit/text/progress.h>
#include <kit/workspace/version.h>

#include <cstdint>
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

/// A number of files and the bytes of their contents.
struct ContentTotals {
  std::uint64_t files = 0;      ///< The number of files.
  std::uint64_t sizeBytes = 0;  ///< The bytes of their contents together.

  friend bool operator==(const ContentTotals&, const ContentTotals&) = default;
};

/// The files of all versions and their bytes, without folders, commits and what a store adds.
struct ContentUsage {
  ContentTotals apart;   ///< If each version had a copy of each of its files.
  ContentTotals stored;  ///< Each content once.
};

/// What one file or folder takes in the store, in all versions together.
struct PathUsage {
  std::string path;     ///< The path.
  ObjectTotals own;     ///< Objects that are at no other path, in no version.
  ObjectTotals shared;  ///< Objects that are elsewhere too.
};

}  // namespace TalVcs::Kit
