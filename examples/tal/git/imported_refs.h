#pragma once

#include "../text.h"

#include <talvcs/talvcs.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tal {

/// What an import leaves out or changes, counted by noun and sentence.
using ImportNotes = std::map<std::pair<std::string, std::string>, std::uint64_t>;

/// The refs of a stream for git, and their way into a repository.
class ImportedRefs {
 public:
  using CommitHandle = TalVcs::cow_ptr<TalVcs::Commit>;

  /// Sets a ref, or with null removes it: the next commit begins a history.
  void Set(const std::string& ref, CommitHandle commit) { m_refs[ref] = std::move(commit); }
  /// Adds a commit that a version has merged.
  void AddMerged(CommitHandle commit) { m_merged.push_back(std::move(commit)); }

  /// Returns the commit of a ref of the stream; null without one.
  CommitHandle Find(const std::string& ref) const;
  /// Does the same, and looks for a branch or tag of the repository next.
  CommitHandle Find(const std::string& ref, const TalVcs::Repository& repository) const;

  /// How many refs `MoveBranches` moved.
  struct Counts {
    std::uint64_t branches = 0;
    std::uint64_t tags = 0;
    std::uint64_t merged = 0;  ///< Tags for what only merges reach.
  };
  /// Puts branches and tags to the commits of the refs. Of a repository without a head, one of them
  /// becomes the current branch. Throws `Failure` if a name is not UTF-8, and if a branch has
  /// commits that the new history lacks.
  Counts MoveBranches(TalVcs::Repository& repository, ImportNotes& notes) const;

 private:
  void MoveBranch(const std::string& ref, const CommitHandle& commit,
                  TalVcs::Repository& repository, ImportNotes& notes, Counts& counts) const;
  std::uint64_t TagMerged(TalVcs::Repository& repository) const;
  void ChooseBranch(TalVcs::Repository& repository) const;

  std::map<std::string, CommitHandle> m_refs;
  std::vector<CommitHandle> m_merged;
};

}  // namespace Tal
