#pragma once

#include "failure.h"

namespace Tal {

/// Reads the arguments and runs the command that they name. Talks of failures itself.
ExitCode RunCommandLine(int argc, const char* const* argv);

}  // namespace Tal
