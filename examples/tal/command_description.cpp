#include "command_description.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>

namespace Tal {
namespace {

CommandDescription Describe(const CLI::App& app) {
  CommandDescription command;
  command.name = app.get_name();
  command.help = app.get_description();
  for (const CLI::Option* option : app.get_options()) {
    OptionDescription described;
    for (const std::string& name : option->get_snames()) described.names.push_back("-" + name);
    for (const std::string& name : option->get_lnames()) described.names.push_back("--" + name);
    described.takesValue = option->get_items_expected_max() > 0;
    described.help = option->get_description();
    if (!described.names.empty()) {
      command.options.push_back(std::move(described));
    } else {
      described.names.push_back(option->get_name(true));
      command.arguments.push_back(std::move(described));
    }
  }
  return command;
}

}  // namespace

bool CommandDescription::TakesName() const {
  constexpr std::array<std::string_view, 6> kNames = {"branch", "commit", "onto",
                                                      "other",  "name",   "version"};
  return std::ranges::any_of(arguments, [&](const OptionDescription& argument) {
    return std::ranges::find(kNames, argument.names.front()) != kNames.end();
  });
}

CommandDescription DescribeProgram(const CLI::App& app) { return Describe(app); }

std::vector<CommandDescription> DescribeCommands(const CLI::App& app) {
  std::vector<CommandDescription> commands;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) commands.push_back(Describe(*command));
  }
  return commands;
}

}  // namespace Tal
