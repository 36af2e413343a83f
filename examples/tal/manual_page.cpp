#include "command_description.h"
#include "completion.h"

#include <talvcs/version.h>

#include <CLI/CLI.hpp>

#include <string_view>

namespace Tal {
namespace {

/// Returns text for a manual page: a dash is a dash, and a line never begins a request.
std::string Roff(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool begins_line = result.empty() || result.back() == '\n';
    if (begins_line && (c == '.' || c == '\'')) result += "\\&";
    result += c == '-' ? "\\-" : c == '\\' ? "\\e" : std::string(1, c);
  }
  return result;
}

void AddRoffOptions(const std::vector<OptionDescription>& options, std::string& page) {
  for (const OptionDescription& option : options) {
    std::string names;
    for (const std::string& name : option.names) {
      names += (names.empty() ? "" : ", ") + ("\\fB" + Roff(name) + "\\fR");
    }
    page += ".TP\n" + names + (option.takesValue ? " \\fIVALUE\\fR" : "") + "\n" +
            Roff(option.help) + "\n";
  }
}

std::string Usage(const CommandDescription& command) {
  std::string line = "\\fBtal " + Roff(command.name) + "\\fR";
  if (!command.options.empty()) line += " [\\fIOPTION\\fR]...";
  for (const OptionDescription& argument : command.arguments) {
    line += " [\\fI" + Roff(argument.names.front()) + "\\fR]";
  }
  return line;
}

/// Returns the text with its empty lines as breaks between paragraphs.
std::string Paragraphs(std::string_view text) {
  std::string page;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    page += line.empty() ? ".PP\n" : Roff(line) + "\n";
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return page;
}

}  // namespace

std::string ManualPage(const CLI::App& app) {
  const CommandDescription program = DescribeProgram(app);
  std::string page = ".TH TAL 1 \"\" \"tal " + std::string(TalVcs::GetVersionText()) +
                     "\" \"User Commands\"\n.SH NAME\ntal \\- keeps the history of a folder\n"
                     ".SH SYNOPSIS\n.B tal\n[\\fIOPTION\\fR]... \\fICOMMAND\\fR "
                     "[\\fIARGUMENT\\fR]...\n.SH DESCRIPTION\n" +
                     Roff(program.help) + "\n" + Paragraphs(app.get_footer()) + ".SH OPTIONS\n";
  AddRoffOptions(program.options, page);
  page += ".SH COMMANDS\n";
  for (const CommandDescription& command : DescribeCommands(app)) {
    page += ".SS " + Usage(command) + "\n" + Roff(command.help) + ".\n";
    AddRoffOptions(command.arguments, page);
    AddRoffOptions(command.options, page);
  }
  return page + ".SH SEE ALSO\n.BR git\\-fast\\-import (1),\n.BR git\\-fast\\-export (1)\n";
}

}  // namespace Tal
