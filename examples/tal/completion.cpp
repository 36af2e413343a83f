#include "completion.h"

#include "command_description.h"

#include <string_view>

namespace Tal {
namespace {

/// Returns `text` with `before` before each of the characters `special`.
std::string Escaped(std::string_view text, std::string_view special, std::string_view before) {
  std::string result;
  for (const char c : text) {
    if (special.find(c) != special.npos) result += before;
    result += c;
  }
  return result;
}

/// Returns `text` as one word of a POSIX shell.
std::string Quoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? "'\\''" : std::string(1, c);
  return result + "'";
}

std::string OptionWords(const CommandDescription& command) {
  std::string words;
  for (const OptionDescription& option : command.options) {
    for (const std::string& name : option.names) words += (words.empty() ? "" : " ") + name;
  }
  return words;
}

std::string BashScript(const CLI::App& app) {
  const std::vector<CommandDescription> commands = DescribeCommands(app);
  std::string names;
  std::string cases;
  for (const CommandDescription& command : commands) {
    names += (names.empty() ? "" : " ") + command.name;
    cases += "    " + command.name + ") options=" + Quoted(OptionWords(command));
    if (command.TakesName()) cases += " takes_name=yes";
    cases += " ;;\n";
  }
  return R"~(# Completion of tal for bash. "tal completion bash" prints it.
_tal() {
  local word=${COMP_WORDS[COMP_CWORD]} command= options= takes_name= i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      -C | --folder) ((++i)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done
  COMPREPLY=()
  if [[ -z $command ]]; then
    case ${COMP_WORDS[COMP_CWORD - 1]} in
      -C | --folder) compopt -o dirnames; return ;;
    esac
    if [[ $word == -* ]]; then
      options=)~" +
         Quoted(OptionWords(DescribeProgram(app))) + R"~(
    else
      options=')~" +
         names + R"~('
    fi
    COMPREPLY=($(compgen -W "$options" -- "$word"))
    return
  fi
  case $command in
)~" + cases +
         R"~(  esac
  if [[ $word == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$word"))
    return
  fi
  compopt -o default
  if [[ -n $takes_name ]]; then
    local IFS=$'\n'
    COMPREPLY=($(compgen -W "$(tal completion names 2>/dev/null)" -- "$word"))
  fi
}
complete -F _tal tal
)~";
}

std::string ZshOption(const OptionDescription& option) {
  std::string group;
  for (const std::string& name : option.names) group += (group.empty() ? "" : ",") + name;
  std::string help = Escaped(option.help, "[]:\\", "\\");
  const std::string rest = Quoted("[" + help + "]" + (option.takesValue ? ":value:_files" : ""));
  if (option.names.size() == 1) return option.names.front() + rest;
  return "{" + group + "}" + rest;
}

std::string ZshScript(const CLI::App& app) {
  std::string list;
  std::string cases;
  for (const CommandDescription& command : DescribeCommands(app)) {
    list += "    " + Quoted(command.name + ":" + Escaped(command.help, ":\\", "\\")) + "\n";
    cases += "    " + command.name + ")\n      _arguments";
    for (const OptionDescription& option : command.options) {
      cases += " \\\n        " + ZshOption(option);
    }
    cases += std::string(" \\\n        '*:argument:") +
             (command.TakesName() ? "_tal_names" : "_files") + "' ;;\n";
  }
  std::string options;
  for (const OptionDescription& option : DescribeProgram(app).options) {
    options += "    " + ZshOption(option) + " \\\n";
  }
  return R"~(#compdef tal
# Completion of tal for zsh. "tal completion zsh" prints it.
_tal_names() {
  local -a names
  names=("${(@f)$(tal completion names 2>/dev/null)}")
  compadd -a names
  _files
}
_tal() {
  local context state line
  local -a commands
  commands=(
)~" + list +
         R"~(  )
  _arguments -C \
)" + options +
         R"~(    '1:command:->command' '*::argument:->argument'
  case $state in
    command) _describe command commands; return ;;
    argument) ;;
    *) return ;;
  esac
  case $line[1] in
)~" + cases +
         R"~(  esac
}
if [ "$funcstack[1]" = _tal ]; then _tal "$@"; else compdef _tal tal; fi
)~";
}

void AddFishOptions(const CommandDescription& command, const std::string& condition,
                    std::string& script) {
  for (const OptionDescription& option : command.options) {
    script += "complete -c tal -n " + Quoted(condition);
    for (const std::string& name : option.names) {
      script += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (option.takesValue) script += " -r";
    script += " -d " + Quoted(option.help) + "\n";
  }
}

std::string FishScript(const CLI::App& app) {
  std::string script = "# Completion of tal for fish. \"tal completion fish\" prints it.\n";
  AddFishOptions(DescribeProgram(app), "__fish_use_subcommand", script);
  for (const CommandDescription& command : DescribeCommands(app)) {
    const std::string condition = "__fish_seen_subcommand_from " + command.name;
    script += "complete -c tal -f -n __fish_use_subcommand -a " + command.name + " -d " +
              Quoted(command.help) + "\n";
    AddFishOptions(command, condition, script);
    if (command.TakesName()) {
      script +=
          "complete -c tal -n " + Quoted(condition) + " -a '(tal completion names 2>/dev/null)'\n";
    }
  }
  return script;
}

}  // namespace

std::string CompletionScript(const CLI::App& app, Shell shell) {
  switch (shell) {
    case Shell::Bash:
      return BashScript(app);
    case Shell::Zsh:
      return ZshScript(app);
    case Shell::Fish:
      break;
  }
  return FishScript(app);
}

}  // namespace Tal
