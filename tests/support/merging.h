#pragma once

#include <talvcs/merge/resolvers.h>
#include <tests/support/text.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {

using Path = array_view<const TalStringViewT<WideChar>>;

/// Returns the components of a conflict's path with "/" between them.
inline std::string Join(Path path) {
  std::string joined;
  for (const TalStringViewT<WideChar>& component : path) {
    if (!joined.empty()) joined += '/';
    joined += Ascii(component);
  }
  return joined;
}

inline ConflictResolver Always(ConflictChoice choice) {
  return [choice](Path, MergeTrees) { return choice; };
}
inline TreeConflictResolver Always(TreeConflictChoice choice) {
  return [choice](Path, MergeTrees) { return choice; };
}

/// Resolvers that merge directories entry by entry and give one answer to every conflict.
inline Resolvers Descending(ConflictChoice choice) {
  return {Always(choice), Always(TreeConflictChoice::Descend)};
}

/// What resolvers were asked, in order: the path of a blob, or that of a directory with a "/"
/// after it; the top is "/".
struct Questions {
  std::vector<std::string> asked;

  /// Resolvers that note their questions here and answer like `Descending`.
  Resolvers Noting(ConflictChoice choice) {
    return {[this, choice](Path path, MergeTrees) {
              asked.push_back(Join(path));
              return choice;
            },
            [this](Path path, MergeTrees) {
              asked.push_back(Join(path) + '/');
              return TreeConflictChoice::Descend;
            }};
  }
};

}  // namespace TalVcs::Testing
