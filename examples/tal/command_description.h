#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace Tal {

/// An option of a command.
struct OptionDescription {
  std::vector<std::string> names;  ///< With their dashes; the longest last.
  bool takesValue = false;
  std::string help;
};

/// A command, as completions and the manual page need it.
struct CommandDescription {
  std::string name;
  std::string help;
  std::vector<OptionDescription> options;
  std::vector<OptionDescription> arguments;  ///< Each with one name, without dashes.

  /// True if an argument names a branch, a tag or a commit.
  bool TakesName() const;
};

/// Returns the options of the program itself, which come before a command.
CommandDescription DescribeProgram(const CLI::App& app);

/// Returns all commands that the help lists, in its order.
std::vector<CommandDescription> DescribeCommands(const CLI::App& app);

}  // namespace Tal
