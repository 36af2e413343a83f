#pragma once

#include "session.h"

#include <set>
#include <string>

namespace Tal {

/// Ids of commits as short as they differ: from each other, and from the heads of all branches and
/// tags. An id has at least seven characters. The commits in between are not read for that, so that
/// the cost doesn't grow with the history: `Session::Find` lists them all if a prefix is not
/// unique.
class ShortIds {
 public:
  explicit ShortIds(Session& session);

  /// Adds another commit that is shown.
  void Add(const TalVcs::Id& id);

  std::string Of(const TalVcs::Id& id) const;

 private:
  std::set<std::string> m_ids;
};

/// Returns the short id of one commit.
std::string ShortIdOf(Session& session, const TalVcs::Id& id);

}  // namespace Tal
