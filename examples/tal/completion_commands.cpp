#include "completion.h"
#include "host.h"
#include "session.h"

#include <iostream>

namespace Tal {
namespace {

/// Prints what an argument can name, one a line; nothing outside of a folder with a history.
void PrintNames(const Host& host) {
  Session session(host, Access::Read);
  for (const Kit::Head& head : session.Document().GetBranches()) std::cout << head.name << '\n';
  for (const Kit::Head& head : session.Document().GetTags()) std::cout << head.name << '\n';
}

}  // namespace

ExitCode PrintCompletion(const Host& host, const CLI::App& app, const std::string& what) {
  if (what == "names") {
    PrintNames(host);
  } else if (what == "bash") {
    std::cout << CompletionScript(app, Shell::Bash);
  } else if (what == "zsh") {
    std::cout << CompletionScript(app, Shell::Zsh);
  } else if (what == "fish") {
    std::cout << CompletionScript(app, Shell::Fish);
  } else {
    throw Failure("there is no completion for \"" + Printable(what) + "\"; take bash, zsh or fish",
                  ExitCode::Usage);
  }
  return ExitCode::Done;
}

ExitCode PrintManualPage(const CLI::App& app) {
  std::cout << ManualPage(app);
  return ExitCode::Done;
}

}  // namespace Tal
