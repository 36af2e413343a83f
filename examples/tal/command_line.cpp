#include "command_line.h"

#include "command_table.h"
#include "completion.h"
#include "interrupt.h"

#include <kit/text/result.h>
#include <talvcs/objects/object_unavailable.h>
#include <talvcs/version.h>

#include <fcntl.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <exception>
#include <iostream>
#include <span>
#include <system_error>
#include <utility>

namespace Tal {
namespace {

constexpr const char* kFooter = R"(
The history of a folder is in its .vcs folder. It has the bytes of the files, their executable bits and
symbolic links, but no other permissions, empty folders or special files. Names that are not UTF-8 are
refused. A file .talignore at the top lists names to skip, one shell pattern a line; "name/" matches
folders only.

Name a commit by its branch or tag, by HEAD, or by at least four characters of its id; NAME~2 is two
commits before NAME. A merge commit has one parent, the head of the current branch, and remembers the
head that it merged.

Environment: TAL_AUTHOR and TAL_EMAIL set the author, NO_COLOR turns colours off.

Exit codes: 0 done; 1 differences, or the operation failed; 2 wrong usage; 3 damaged or unreadable store;
130 interrupted, nothing has changed.
)";

ExitCode CodeOf(Kit::ErrorCode code) {
  switch (code) {
    case Kit::ErrorCode::Damaged:
    case Kit::ErrorCode::Unavailable:
      return ExitCode::Damaged;
    case Kit::ErrorCode::Cancelled:
      return ExitCode::Interrupted;
    case Kit::ErrorCode::BadName:
    case Kit::ErrorCode::BadText:
      return ExitCode::Usage;
    default:
      return ExitCode::Differs;
  }
}

/// Gives a file to each standard stream that is closed. Else a file of the store would get its
/// number, and with it what the command prints. Reading or writing such a stream fails.
void HoldClosedStreams() {
  constexpr std::pair<int, int> kStreams[] = {
      {STDIN_FILENO, O_WRONLY}, {STDOUT_FILENO, O_RDONLY}, {STDERR_FILENO, O_RDONLY}};
  for (const auto& [number, flags] : kStreams) {
    // It gets the lowest number that is free.
    if (fcntl(number, F_GETFD) < 0) static_cast<void>(open("/dev/null", flags));
  }
}

/// Throws `Failure` if something that was printed didn't arrive.
void FlushOutput() {
  std::cout.flush();
  if (!std::cout) throw Failure("cannot write the output of the command");
}

/// Returns an empty text for a whole number from 1 on, else what is wrong.
std::string CheckCount(const std::string& text) {
  std::uint64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, count);
  if (error == std::errc() && rest == end && count > 0) return {};
  return "write a whole number from 1 on, not \"" + Printable(text) + "\"";
}

/// Returns an empty text for any text but an empty one, which names nothing, else what is wrong.
std::string CheckText(const std::string& text) {
  return text.empty() ? "it must not be empty" : std::string();
}

/// Returns the name of the command among the arguments, or an empty text.
std::string_view FindCommand(std::span<const char* const> arguments) {
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string_view word = arguments[i];
    if (!word.starts_with('-')) return word;
    if (word == "-C" || word == "--folder") ++i;
  }
  return {};
}

}  // namespace

Command& Command::Flag(const char* names, bool& value, const char* help) {
  m_app.add_flag(names, value, help);
  return *this;
}

Command& Command::Option(const char* names, std::string& value, const char* help) {
  m_app.add_option(names, value, help)->check(CheckText);
  return *this;
}

Command& Command::Text(const char* names, std::string& value, const char* help) {
  m_app.add_option(names, value, help);
  return *this;
}

Command& Command::Option(const char* names, std::vector<std::string>& values, const char* help) {
  m_app.add_option(names, values, help)
      ->expected(1)
      ->allow_extra_args(false)  // else "[a,b]" would be two values
      ->check(CheckText)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

Command& Command::Count(const char* names, std::uint64_t& value, const char* help) {
  m_app.add_option(names, value, help)->check(CheckCount, "POSITIVE");
  return *this;
}

Command& Command::Argument(const char* name, std::string& value, const char* help) {
  m_app.add_option(name, value, help)->check(CheckText);
  return *this;
}

Command& Command::Json() {
  m_app.add_flag("--json", m_host.json, "Print JSON");
  return *this;
}

Command& Command::Required(const char* name) {
  m_app.get_option(name)->required();
  return *this;
}

Command& Command::Needs(const char* name, const char* other) {
  m_app.get_option(name)->needs(m_app.get_option(other));
  return *this;
}

Command& Command::Exclusive(std::initializer_list<const char*> names) {
  for (const char* const* name = names.begin(); name != names.end(); ++name) {
    for (const char* const* other = name + 1; other != names.end(); ++other)
      m_app.get_option(*name)->excludes(m_app.get_option(*other));
  }
  return *this;
}

Commands::Commands(std::string_view only)
    : m_only(only), m_app(std::make_unique<CLI::App>("Keeps the history of a folder.", "tal")) {
  m_app->footer(kFooter);
  m_app->set_version_flag("--version", std::string("tal ") + TalVcs::GetVersionText());
  m_app->require_subcommand(1);
  m_app->failure_message([](const CLI::App* app, const CLI::Error& error) {
    const auto used = app->get_subcommands();
    const auto unknown = app->remaining();
    if (used.empty() && !unknown.empty())
      return "tal: there is no command \"" + Printable(unknown.front()) +
             "\"\ntal --help shows the commands.\n";
    if (used.empty() && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr)
      return std::string("tal: say what to do\ntal --help shows the commands.\n");
    const std::string name = used.empty() ? "" : " " + used.front()->get_name();
    return std::string("tal: ") + error.what() + "\ntal" + name + " --help shows " +
           (used.empty() ? "the commands" : "its options") + ".\n";
  });
  m_app->add_option("-C,--folder", m_start, "Work in this folder instead of the current one")
      ->check(CheckText);
  for (const AddCommands add : GetCommandTable()) add(*this);
  if (HasCommands() && !m_only.empty()) return;
  if (!std::exchange(m_only, {}).empty()) {
    for (const AddCommands add : GetCommandTable()) add(*this);
  }
  AddDescriptions();
}

bool Commands::HasCommands() const { return !m_app->get_subcommands({}).empty(); }

Commands::~Commands() = default;

void Commands::Add(const char* name, const char* help, ExitCode (*run)(const Host&)) {
  if (IsWanted(name)) AddAction(name, help, run);
}

/// Adds the commands that describe all others.
void Commands::AddDescriptions() {
  const auto shell = std::make_shared<std::string>();
  AddAction("completion", "Print the completion of this program for a shell",
            [this, shell](const Host& host) { return PrintCompletion(host, *m_app, *shell); })
      .Argument("shell", *shell, "bash, zsh or fish")
      .Required("shell");
  AddAction("manual", "Print the manual page",
            [this](const Host&) { return PrintManualPage(*m_app); });
}

Command Commands::AddAction(const char* name, const char* help, Action action) {
  CLI::App* command = m_app->add_subcommand(name, help);
  command->footer("");
  command->callback([this, action = std::move(action)] { m_action = action; });
  return {*command, m_host};
}

ExitCode Commands::Run(int argc, const char* const* argv) {
  try {
    m_app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const ExitCode code = m_app->exit(error) == 0 ? ExitCode::Done : ExitCode::Usage;
    FlushOutput();
    return code;
  }
  m_host.start = m_start;
  const ExitCode code = m_action(m_host);
  FlushOutput();
  return code;
}

ExitCode RunCommandLine(int argc, const char* const* argv) {
  HoldClosedStreams();
  std::ios::sync_with_stdio(false);
  CatchInterrupts();
  Commands commands(FindCommand({argv, static_cast<std::size_t>(argc)}));
  const auto fail = [&](const std::string& reason, ExitCode code) {
    std::cout.flush();
    commands.GetTerminal().Complain(reason);
    return code;
  };
  try {
    return commands.Run(argc, argv);
  } catch (const Failure& failure) {
    return fail(failure.what(), failure.Code());
  } catch (const Kit::ErrorException& error) {
    if (IsInterrupted()) return fail("interrupted; nothing has changed", ExitCode::Interrupted);
    const ExitCode code = CodeOf(error.GetError().code);
    const bool is_away = error.GetError().code == Kit::ErrorCode::Unavailable;
    const std::string what = is_away ? "the store can't be read: " : "the store is damaged: ";
    const std::string prefix = code == ExitCode::Damaged ? what : "";
    return fail(prefix + Printable(error.what()), code);
  } catch (const TalVcs::ObjectUnavailable& problem) {
    return fail(std::string("the store is damaged: ") + Printable(problem.what()),
                ExitCode::Damaged);
  } catch (const std::exception& error) {
    return fail(error.what(), ExitCode::Differs);
  }
}

}  // namespace Tal
