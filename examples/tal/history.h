#pragma once

#include "session.h"

#include <string>
#include <vector>

namespace Tal {

/// Returns the version's id as a text.
std::string IdOf(const Kit::Version& version);

/// A version in its place in the history.
struct HistoryCommit {
  Kit::Version version;
  std::string id;
  int parent = -1;            ///< index of the parent, or -1
  std::vector<int> children;  ///< indices
};

/// Versions, children always before their parents and otherwise the newest first.
struct History {
  std::vector<HistoryCommit> commits;
};

/// Returns all branches, the current one first and the others by name.
std::vector<Kit::Head> ListBranches(Session& session);

/// Returns `start` and its ancestors, or without it what all branches and tags reach.
History BuildHistory(Session& session, const std::optional<Kit::Version>& start);

/// Returns up to `limit` versions, `start` and its ancestors, newest first. Reads no more of the
/// history than that.
std::vector<Kit::Version> ListVersions(Session& session, const Kit::Version& start,
                                       Kit::LogOptions options);

}  // namespace Tal
