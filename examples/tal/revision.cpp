#include "failure.h"
#include "session.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace Tal {
namespace {

constexpr std::size_t kLeastIdCharacters = 4;
constexpr const char* kHead = "HEAD";

CommitPtr FindById(const TalVcs::IRepository& repository, const std::string& prefix) {
  const bool isHex = prefix.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!isHex || prefix.size() < kLeastIdCharacters) return nullptr;
  CommitPtr found;
  for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) {
    if (!ToUtf8(id).starts_with(prefix)) continue;
    if (found) throw Failure("more than one commit has an id that begins with " + prefix);
    found = commit;
  }
  return found;
}

CommitPtr FindExactly(const TalVcs::IRepository& repository, const std::string& name) {
  if (name == kHead) {
    if (!repository.GetHead()) throw Failure("there is no commit yet; tal commit makes one");
    return repository.GetHead();
  }
  const WideString wide = ToWide(name);
  if (repository.GetStorage()->BranchExist(wide)) {
    const CommitPtr head = repository.GetHead(wide);
    if (!head) throw Failure("branch \"" + Printable(name) + "\" has no commit yet");
    return head;
  }
  return FindById(repository, name);
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

CommitPtr FindCommit(const TalVcs::IRepository& repository, const std::string& name) {
  CommitPtr commit = FindExactly(repository, name);
  if (commit) return commit;
  if (const std::optional<Distance> distance = SplitDistance(name)) {
    commit = FindExactly(repository, distance->name);
    for (unsigned step = 0; commit && step < distance->steps; ++step) commit = commit->GetParent();
  }
  if (!commit) throw Failure("there is no branch or commit \"" + Printable(name) + "\"");
  return commit;
}

void CheckBranchName(const std::string& name) {
  if (name.empty()) throw Failure("a branch needs a name", ExitCode::Usage);
  if (!ToWideExactly(name)) {
    throw Failure("the name of a branch must be UTF-8: \"" + Printable(name) + "\"",
                  ExitCode::Usage);
  }
  if (name == kHead || SplitDistance(name)) {
    throw Failure("\"" + Printable(name) + "\" cannot name a branch, because it names a commit",
                  ExitCode::Usage);
  }
}

}  // namespace Tal
