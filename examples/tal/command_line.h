#pragma once

#include "failure.h"
#include "host.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace Tal {

/// Declares the options of one command. What they set must live as long as the command line.
class Command {
 public:
  Command(CLI::App& app, Host& host) : m_app(app), m_host(host) {}

  /// Add an option, by names such as "-n,--limit". An option of a count takes numbers from 1 on. No
  /// value of another one or of an argument is empty, so that a variable of a script that isn't set
  /// never means everything. Only a text may be empty.
  Command& Flag(const char* names, bool& value, const char* help);
  Command& Option(const char* names, std::string& value, const char* help);
  Command& Text(const char* names, std::string& value, const char* help);
  Command& Option(const char* names, std::vector<std::string>& values, const char* help);
  Command& Count(const char* names, std::uint64_t& value, const char* help);
  /// Adds an argument, which has a place and no name of its own.
  Command& Argument(const char* name, std::string& value, const char* help);
  /// Adds "--json": the command can answer in JSON.
  Command& Json();

  /// Say what options, by one of their names, must or can't do.
  Command& Required(const char* name);
  Command& Needs(const char* name, const char* other);
  Command& Exclusive(std::initializer_list<const char*> names);

 private:
  CLI::App& m_app;
  Host& m_host;
};

/// The commands of the program.
class Commands {
 public:
  /// Adds all commands, or the one of that name alone if there is one: the others would take longer
  /// to describe than most commands run.
  explicit Commands(std::string_view only = {});
  ~Commands();

  /// Adds a command: `declare` its options in a record that `run` then gets.
  template <class Options>
  void Add(const char* name, const char* help, ExitCode (*run)(const Host&, const Options&),
           void (*declare)(Command&, Options&)) {
    if (!IsWanted(name)) return;
    const auto options = std::make_shared<Options>();
    Command command =
        AddAction(name, help, [options, run](const Host& host) { return run(host, *options); });
    declare(command, *options);
  }
  /// Adds a command without options.
  void Add(const char* name, const char* help, ExitCode (*run)(const Host&));

  /// Runs the command that the arguments name.
  ExitCode Run(int argc, const char* const* argv);
  const Terminal& GetTerminal() const { return m_host.terminal; }

 private:
  using Action = std::function<ExitCode(const Host&)>;

  bool IsWanted(std::string_view name) const { return m_only.empty() || m_only == name; }
  bool HasCommands() const;
  Command AddAction(const char* name, const char* help, Action action);
  void AddDescriptions();

  Host m_host;
  std::string m_only;
  std::string m_start = ".";
  Action m_action;
  std::unique_ptr<CLI::App> m_app;
};

/// Reads the arguments and runs the command that they name. Prints the reason of a failure.
ExitCode RunCommandLine(int argc, const char* const* argv);

}  // namespace Tal
