#pragma once

#include <kit/workspace/workspace.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace Tal {

/// What an export wrote.
struct GitExportReport {
  std::uint64_t versions = 0;
  std::uint64_t branches = 0;
  std::uint64_t tags = 0;
  /// What git has under another name or without some part, a sentence each.
  std::vector<std::string> notes;
};

/// Writes all branches and tags of a workspace, with everything that they reach, as a stream for
/// `git fast-import`.
///
/// A version becomes a commit with the files, message, author and time of the version; the author
/// is the committer too. Its parents are the version before it and the heads that it merged, as far
/// as a branch reaches them. The same history gives the same bytes.
///
/// Throws `Failure` if the name of a branch is too long for git, if an object can't be read, and if
/// the stream can't be written.
GitExportReport ExportGit(const TalVcs::Kit::Workspace& workspace, std::ostream& out);

}  // namespace Tal
