#pragma once

#include <kit/open/internal/record_reader.h>
#include <kit/open/report.h>

#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// What a walk over the records of a store does beside checking them. An empty function does
/// nothing.
struct WalkHooks {
  /// Returns those of `ids` that have to be looked at. The others count as whole, with everything
  /// below them.
  std::function<Result<std::vector<Id>>(std::span<const Id> ids)> wanted;
  /// Takes each commit that can be read, newest first, before the trees of its history.
  std::function<Status(const CommitRecord& commit)> commitRead;
  /// Takes each file and folder that can be read, after everything that it names. `isWhole` is
  /// false if something below it can't be read.
  std::function<Status(const StoredObject& object, bool isWhole)> objectRead;
  /// Called for each commit that can be read, oldest first, after everything in its tree.
  /// `isWhole` is false if something that it reaches can't be read.
  std::function<Status(const Id& commit, bool isWhole)> commitDone;
  /// True if `objectRead` gets objects with their previous versions, as far as those were read.
  bool findsPrevious = false;
  /// Returns why the store's own object could not be read, if what was read came from elsewhere.
  std::function<std::optional<ReadProblem>(const Id& id)> replaced;
  /// Takes the place of each such object. Its `commits` are 0.
  std::function<void(Damage damage)> replacedAt;
  /// False if it is enough to know that the store has a file.
  bool readsFiles = true;
};

}  // namespace TalVcs::Kit
