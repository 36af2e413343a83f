#include <kit/open/internal/errors.h>
#include <kit/open/try.h>

namespace TalVcs::Kit {

Error ErrorOf(const ObjectUnavailable& problem) {
  const bool is_unread = problem.GetProblem() == ObjectProblem::Unreadable;
  return MakeError(is_unread ? ErrorCode::Unavailable : ErrorCode::Damaged, problem.what(),
                   TextOf(problem.GetId()), "the repository is as it was");
}

}  // namespace TalVcs::Kit
