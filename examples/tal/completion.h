#pragma once

#include "failure.h"

#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace Tal {

struct Host;

/// The shells for which there is a completion.
enum class Shell { Bash, Zsh, Fish };

/// Returns a script that completes the commands and options of `app`. Arguments that name a commit
/// are completed by `tal completion names`, all others as file names.
std::string CompletionScript(const CLI::App& app, Shell shell);

/// Returns the manual page of `app` in the format of man(7).
std::string ManualPage(const CLI::App& app);

/// Prints the completion for the shell `what`; for "names", the branches and tags of the folder.
/// Throws `Failure` for anything else.
ExitCode PrintCompletion(const Host& host, const CLI::App& app, const std::string& what);

/// Prints the manual page.
ExitCode PrintManualPage(const CLI::App& app);

}  // namespace Tal
