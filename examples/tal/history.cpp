#include "history.h"

#include <algorithm>
#include <utility>

namespace Tal {

std::string IdOf(const Kit::Version& version) { return ToUtf8(version.id); }

std::string ShortIdOf(Session& session, const TalVcs::Id& id) {
  return Kit::ShortIds(session.Document()).Of(id);
}

std::vector<Kit::Head> ListBranches(Session& session) {
  std::vector<Kit::Head> branches = session.Document().GetBranches();
  const std::string current = session.Branch();
  if (!session.Head()) branches.push_back({current, TalVcs::Id()});
  std::sort(branches.begin(), branches.end(), [&](const Kit::Head& a, const Kit::Head& b) {
    return std::make_pair(a.name != current, a.name) < std::make_pair(b.name != current, b.name);
  });
  return branches;
}

}  // namespace Tal
