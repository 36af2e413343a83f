#include "failure.h"
#include "session.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tal {
namespace {

using TalVcs::Kit::Version;

constexpr std::size_t kLeastIdCharacters = 4;
constexpr const char* kHead = "HEAD";

std::optional<Version> FindById(Kit::Workspace& document, const std::string& prefix) {
  const bool is_hex = prefix.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!is_hex || prefix.size() < kLeastIdCharacters) return std::nullopt;
  std::vector<Version> found;
  for (Version& version : document.Log({.allBranches = true, .limit = UINT64_MAX}).value()) {
    if (ToUtf8(version.id).starts_with(prefix)) found.push_back(std::move(version));
  }
  if (found.empty()) return std::nullopt;
  if (found.size() == 1) return std::move(found.front());
  std::string text = "more than one commit has an id that begins with " + prefix + ":";
  for (const Version& version : found)
    text += "\n  " + ToUtf8(version.id) + " " + Printable(version.summary);
  throw Failure(text);
}

std::optional<Version> FindExactly(Session& session, const std::string& name) {
  if (name == kHead) {
    std::optional<Version> head = session.Head();
    if (!head) throw Failure("there is no commit yet; tal commit makes one");
    return head;
  }
  Kit::Workspace& document = session.Document();
  if (!session.Head() && name == session.Branch())
    throw Failure("branch \"" + Printable(name) + "\" has no commit yet");
  if (!ToWideExactly(name)) return std::nullopt;
  Kit::Result<Version> version = document.Find(name);
  if (version) return *std::move(version);
  if (version.error().code != Kit::ErrorCode::NotFound) Kit::ThrowError(version.error());
  return FindById(document, name);
}

struct Distance {
  std::string name;
  unsigned steps;
};

std::optional<Distance> SplitDistance(const std::string& text) {
  const std::size_t mark = text.rfind('~');
  if (mark == std::string::npos) return std::nullopt;
  unsigned steps = 1;
  const char* const first = text.data() + mark + 1;
  const char* const last = text.data() + text.size();
  if (first != last) {
    const auto [end, error] = std::from_chars(first, last, steps);
    if (error != std::errc() || end != last) return std::nullopt;
  }
  return Distance{text.substr(0, mark), steps};
}

}  // namespace

Version Session::Find(const std::string& name) {
  std::optional<Version> found = FindExactly(*this, name);
  if (found) return *std::move(found);
  if (const std::optional<Distance> distance = SplitDistance(name)) {
    found = FindExactly(*this, distance->name);
    for (unsigned step = 0; found && step < distance->steps; ++step) {
      if (found->parent.View().IsEmpty()) {
        found.reset();
      } else {
        found = Document().Find(ToUtf8(found->parent)).value();
      }
    }
  }
  if (!found) throw Failure("there is no branch, tag or commit \"" + Printable(name) + "\"");
  return *std::move(found);
}

void CheckBranchName(const std::string& name) {
  if (name.empty()) throw Failure("a branch or tag needs a name", ExitCode::Usage);
  if (!ToWideExactly(name)) {
    throw Failure("the name of a branch or tag must be UTF-8: \"" + Printable(name) + "\"",
                  ExitCode::Usage);
  }
  if (name == kHead || SplitDistance(name)) {
    throw Failure("\"" + Printable(name) + "\" cannot name a branch, because it names a commit",
                  ExitCode::Usage);
  }
}

}  // namespace Tal
