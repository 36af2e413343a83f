#pragma once

#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/workspace/workspace.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Tal {

/// Options of `MakeReport`.
struct ReportOptions {
  /// What the page is about, such as the name of a folder.
  std::string title;
  /// The most bytes of the page; at least `kLeastBytes`.
  std::uint64_t mostBytes = 16 << 20;
  /// The phase "report" and those of `Verify` and `Statistics`.
  TalVcs::Kit::Progress progress = {};

  static constexpr std::uint64_t kLeastBytes = 128 << 10;
};

/// A page about a history.
struct Report {
  std::string page;  ///< HTML in UTF-8.
  /// What the limit of bytes left out, a sentence each. The page says it too.
  std::vector<std::string> cuts;
};

/// Makes a page about the history of a workspace and the store below it: the versions with their
/// graph and changes, a comparison of any two versions, the cost of each branch, and the result of
/// a verification.
///
/// The page needs no other file and no network, and can be read without its script. All names and
/// contents appear as text. The same history, title and limit give the same bytes. A history that
/// is too large for the limit is cut: first the contents for comparisons, oldest first, then
/// changes, then the oldest versions.
///
/// Damage doesn't fail it: the page says what can't be read. Throws `Failure` if the store can't be
/// verified, and if `options.progress` cancels it.
Report MakeReport(const TalVcs::Kit::Workspace& workspace, TalVcs::Kit::IObjectStore& store,
                  const ReportOptions& options);

}  // namespace Tal
