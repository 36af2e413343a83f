#pragma once

#include <kit/open/open.h>

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace Tal {

/// What an import brought.
struct GitImportReport {
  std::uint64_t commits = 0;
  std::uint64_t branches = 0;
  std::uint64_t tags = 0;
  std::uint64_t mergedTags = 0;  ///< Tags "merged/..." for what only merges reach.
  /// What of the stream is left out or changed, a sentence each.
  std::vector<std::string> notes;
};

/// Reads what `git fast-export` writes into a repository, and saves it.
///
/// A commit becomes a version on top of its first parent, with the message, the author and the
/// author's time. The heads of its other parents are remembered as those that the version has
/// merged; what only a merge reaches gets a tag "merged/...". "refs/heads/NAME" becomes the branch
/// NAME and "refs/tags/NAME" the tag NAME. A branch that the store has must be in the history of
/// the new head. The same stream gives the same ids.
///
/// Throws `Failure` for a stream that it can't read, with the number of the line, and as `Save`
/// fails. The store is then as it was, and the
/// repository is of no use. Memory: what the stream has.
GitImportReport ImportGit(std::istream& in, TalVcs::Kit::OpenedRepository& opened);

}  // namespace Tal
