#include "failure.h"
#include "session.h"

#include <kit/history/revision.h>

#include <optional>
#include <string>

namespace Tal {
namespace {

using TalVcs::Kit::Version;

/// Fails for what names a version of a branch that has none yet.
void RefuseBranchWithoutCommit(Session& session, const std::string& name) {
  if (session.Head()) return;
  const std::optional<Kit::RevisionSteps> split = Kit::SplitSteps(name);
  const auto names = [&](std::string_view branch) {
    return name == branch || (split && split->name == branch);
  };
  if (names(Kit::kHeadRevision)) throw Failure("there is no commit yet; tal commit makes one");
  if (names(session.Branch()))
    throw Failure("branch \"" + Printable(session.Branch()) + "\" has no commit yet");
}

[[noreturn]] void ThrowAmbiguous(Session& session, const std::string& name) {
  const std::optional<Kit::RevisionSteps> split = Kit::SplitSteps(name);
  const std::string& prefix = split ? split->name : name;
  std::string text = "more than one commit has an id that begins with " + prefix + ":";
  for (const Version& version : Kit::FindByPrefix(session.Document(), prefix).value())
    text += "\n  " + ToUtf8(version.id) + " " + Printable(version.summary);
  throw Failure(text);
}

}  // namespace

Version Session::Find(const std::string& name) {
  Kit::Result<Version> found = Kit::FindRevision(Document(), name);
  if (found) return *std::move(found);
  RefuseBranchWithoutCommit(*this, name);
  switch (found.error().code) {
    case Kit::ErrorCode::BadName:
      ThrowAmbiguous(*this, name);
    case Kit::ErrorCode::NotFound:
    case Kit::ErrorCode::BadText:
      throw Failure("there is no branch, tag or commit \"" + Printable(name) + "\"");
    default:
      Kit::ThrowError(found.error());
  }
}

void CheckBranchName(const std::string& name) {
  if (name.empty()) throw Failure("a branch or tag needs a name", ExitCode::Usage);
  if (!ToWideExactly(name)) {
    throw Failure("the name of a branch or tag must be UTF-8: \"" + Printable(name) + "\"",
                  ExitCode::Usage);
  }
  if (name == Kit::kHeadRevision || Kit::SplitSteps(name)) {
    throw Failure("\"" + Printable(name) + "\" cannot name a branch, because it names a commit",
                  ExitCode::Usage);
  }
}

}  // namespace Tal
