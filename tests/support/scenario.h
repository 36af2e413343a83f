#pragma once

#include <kit/memory_store.h>
#include <talvcs/objects/blob.h>
#include <talvcs/repository/repository.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// The life of a repository: files come in, are edited and removed, branches fork and merge with
/// conflicts of which either side wins, history is rebased, cut and simplified, and all of it is
/// purged, cloned, saved and loaded.
///
/// It can run again in a repository in which an earlier run was interrupted. In a repository
/// without objects every run has the same result.
class Scenario {
 public:
  /// With so many files in the first commit, and so many commits on either side of a merge.
  Scenario(int files, int commits);

  /// Returns what is left: branches with their heads, and the ids of all objects. Throws
  /// `std::logic_error` if anything doesn't come out as it has to, and passes on what the library
  /// throws.
  std::string Run(Repository& repository, Kit::MemoryStore& store) const;

  /// Removes all branches.
  static void RemoveBranches(Repository& repository);

 private:
  using WideText = TalStringT<WideChar>;
  struct File {
    WideText path;
    Blob blob;
  };

  void StartAfresh(Repository& repository) const;
  void Import(Repository& repository) const;
  void Edit(Repository& repository) const;
  void ForkAndMerge(Repository& repository) const;
  void Rebase(Repository& repository) const;
  void CutHistory(Repository& repository) const;
  void Clone(Repository& repository) const;
  void SaveAndLoad(Repository& repository, Kit::MemoryStore& store) const;
  void Grow(Repository& repository, TalStringViewT<WideChar> branch, TalStringViewT<WideChar> side,
            const Blob& content) const;

  std::vector<File> m_files;
  std::vector<WideText> m_names;  // of commits, and of the files that they add
};

}  // namespace TalVcs::Testing
