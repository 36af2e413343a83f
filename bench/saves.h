#pragma once

#include <kit/store/object_store.h>
#include <talvcs/talvcs.h>

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

/// Histories as the saves that a store sees, for the benchmark of stores.
namespace TalVcs::Bench {

/// The objects that one save adds, children first. The last one is the commit.
using Saved = std::vector<Kit::StoredObject>;

/// A history, and a file in it that further saves edit.
struct History {
  Repository repository;
  TalStringT<WideChar> editedPath;
};

/// A document of 20 chapters of 4 KiB. Each commit replaces 170 bytes in one of them.
History MakeEdits(std::uint32_t commits);

/// The history of the other benchmarks, whose files don't compress: 10,000 files, 1,000 commits.
History MakeBenchHistory();

/// A history from a file, which `bench/stores.py` writes:
///
///     history := commit*
///     commit  := "commit " seconds SP changes LF change*
///     change  := size SP path LF bytes      a size of -1, without bytes, removes the file
History ReadHistory(const std::filesystem::path& file);

/// Returns what each save of the history adds, oldest first.
std::vector<Saved> SavesOf(Repository& repository);

/// Writes the history as `git fast-import` reads it.
void WriteFastImport(const Repository& repository, std::ostream& out);

/// Commits an edit of 170 bytes in a file.
void EditFile(Repository& repository, const TalStringT<WideChar>& path, std::uint32_t number);

}  // namespace TalVcs::Bench
