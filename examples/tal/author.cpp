#include "author.h"

#include "failure.h"
#include "terminal.h"
#include "text.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace Tal {
namespace {

std::string FirstOf(const std::string& option, const char* variable) {
  if (!option.empty()) return option;
  const char* value = std::getenv(variable);
  return value == nullptr ? std::string() : std::string(value);
}

/// Returns a name without the characters that no commit can have.
std::string Harmless(std::string text) {
  std::erase_if(text, [](char c) { return c == '<' || c == '>' || c == '\n'; });
  return ToWideExactly(text) ? text : std::string();
}

Author AccountAuthor() {
  Author author{"unknown", "unknown"};
  if (const passwd* account = getpwuid(geteuid())) {
    const std::string full = account->pw_gecos == nullptr ? "" : account->pw_gecos;
    const std::string login = Harmless(account->pw_name);
    author.name = Harmless(full.substr(0, full.find(',')));
    if (author.name.empty()) author.name = login;
    author.email = login;
  }
  std::array<char, 256> machine{};
  if (gethostname(machine.data(), machine.size() - 1) == 0)
    author.email += "@" + Harmless(machine.data());
  return author;
}

/// Refuses what the text of a commit can't hold.
void CheckPerson(const std::string& what, const std::string& text, std::string_view forbidden) {
  const auto refuse = [&](const std::string& why) {
    throw Failure(what + " must " + why + ": \"" + Printable(text) + "\"", ExitCode::Usage);
  };
  if (!ToWideExactly(text)) refuse("be UTF-8");
  if (text.find('\n') != std::string::npos) refuse("be one line");
  if (text.find(forbidden) != std::string::npos)
    refuse("not contain \"" + std::string(forbidden) + "\"");
}

}  // namespace

Author FindAuthor(const std::string& name, const std::string& email) {
  Author author{FirstOf(name, "TAL_AUTHOR"), FirstOf(email, "TAL_EMAIL")};
  const Author account = AccountAuthor();
  if (author.name.empty()) author.name = account.name;
  if (author.email.empty()) author.email = account.email;
  CheckPerson("the author's name", author.name, "<");
  CheckPerson("the author's e-mail", author.email, ">");
  return author;
}

void CheckDescription(const std::string& description) {
  if (description.find_first_not_of(" \t\r\n") == std::string::npos)
    throw Failure("the description is empty; say with -m what the commit changes", ExitCode::Usage);
  if (!ToWideExactly(description) || description.find('\0') != std::string::npos)
    throw Failure("a description must be UTF-8: \"" + Printable(description) + "\"",
                  ExitCode::Usage);
}

}  // namespace Tal
