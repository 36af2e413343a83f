#pragma once

#include <kit/store/object_store.h>

#include <memory>
#include <string>

namespace Tal {

/// Opens the history at an address such as "postgresql://user@machine/database#name". Throws
/// `Failure`.
///
/// The program `tal` lacks the libraries for that, because loading them takes longer than most
/// commands: there the function replaces the process by `tal-servers`, which has them and runs the
/// command from its beginning. So nothing must have been changed or printed before the first call.
std::shared_ptr<TalVcs::Kit::IObjectStore> OpenServer(const std::string& place);

}  // namespace Tal
