#include "author.h"

#include "failure.h"
#include "terminal.h"

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

/// What stands for a name where nobody told one: without the characters that can't come back.
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

void CheckText(const std::string& what, const std::string& text, char forbidden) {
  const auto refuse = [&](const std::string& why) {
    throw Failure(what + " " + why + ": \"" + Printable(text) + "\"", ExitCode::Usage);
  };
  if (!ToWideExactly(text)) refuse("must be UTF-8");
  if (text.find('\n') != std::string::npos)
    refuse("must be one line, because the store returns no more");
  if (forbidden != '\0' && text.find(forbidden) != std::string::npos)
    refuse(std::string("must not contain \"") + forbidden +
           "\", because the store would not return it");
}

}  // namespace

Author FindAuthor(const std::string& name, const std::string& email) {
  Author author{FirstOf(name, "TAL_AUTHOR"), FirstOf(email, "TAL_EMAIL")};
  const Author account = AccountAuthor();
  if (author.name.empty()) author.name = account.name;
  if (author.email.empty()) author.email = account.email;
  CheckText("the author's name", author.name, '<');
  CheckText("the author's e-mail", author.email, '>');
  return author;
}

void CheckDescription(const std::string& description) {
  CheckText("a description", description, '\0');
}

std::string WhyLost(const TalVcs::Commit& commit) {
  if (commit.GetParent()) return "";
  const std::string text = ToUtf8(commit.GetAuthorName()) + " <" + ToUtf8(commit.GetAuthorEmail()) +
                           ">\n" + ToUtf8(commit.GetDesciption());
  if (text.find("parent ") == std::string::npos) return "";
  return "a first commit must not have \"parent \" in its description or author, because the store "
         "would not return it: \"" +
         Printable(text) + "\"";
}

}  // namespace Tal
