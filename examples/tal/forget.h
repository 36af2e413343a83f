#pragma once

#include "text.h"

namespace Tal {

/// Removes `last` and all its ancestors from the history of `repository`, but for the ones on which
/// branches stand, and gives the commits above a new beginning. Throws `Failure` if there is
/// nothing to remove.
///
/// `last` is taken over, so that it doesn't keep the commits alive.
void ForgetHistory(TalVcs::Repository& repository, TalVcs::cow_ptr<TalVcs::Commit> last);

}  // namespace Tal
