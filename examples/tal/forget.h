#pragma once

#include "trees.h"

namespace Tal {

/// Removes `last` and all its ancestors from the history of `repository`, but for the ones on which
/// branches stand, and gives the commits above a new beginning. Throws `Failure` if there is
/// nothing to remove.
///
/// `last` is taken over, so that it doesn't keep the commits alive.
void ForgetHistory(TalVcs::Repository& repository, CommitPtr last);

}  // namespace Tal
