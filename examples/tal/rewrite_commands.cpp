#include "commands.h"
#include "folder_update.h"
#include "forget.h"
#include "store_size.h"

namespace Tal {
namespace {

/// Saves what the repository holds, and tells by how much the store has shrunk.
void SaveAndTellFreed(const Host& host, Session& session, const std::string& what) {
  const StoreSize before = MeasureStore(session.Reader());
  session.Save();
  const StoreSize after = MeasureStore(session.Reader());
  const std::uint64_t freed = before.bytes > after.bytes ? before.bytes - after.bytes : 0;
  const std::uint64_t gone = before.objects > after.objects ? before.objects - after.objects : 0;
  session.SetLastFreed(freed);
  host.terminal.Say(what + "; freed " + FormatBytes(freed) + " (" + std::to_string(freed) +
                    " bytes) of " + FormatBytes(before.bytes) + ", " + Plural(gone, "object"));
}

}  // namespace

ExitCode RunRebase(const Host& host, const RebaseOptions& options) {
  Session session(host, Access::Change);
  TalVcs::Repository& repository = session.Repository();
  const std::string branch = options.branch.empty() ? session.Branch() : options.branch;
  const std::string other = options.other.empty() ? options.onto : options.other;
  for (const std::string& name : {branch, other}) {
    const bool mayBeMissing = name == options.onto;
    if (!mayBeMissing && !repository.BranchExist(ToWide(name)))
      throw Failure("cannot rebase \"" + Printable(name) + "\": there is no such branch");
  }
  CheckBranchName(options.onto);

  const TreePtr before = RootOf(session.Head());
  if (!repository.EnsureCommonRootFor(ToWide(branch), ToWide(other), ToWide(options.onto)))
    throw Failure("cannot rebase the branches onto \"" + Printable(options.onto) +
                  "\"; branches and files are unchanged");
  SaveWithFolder(session, before);
  host.terminal.Say(Printable(branch) + " and " + Printable(other) +
                    " have a common first commit now");
  return ExitCode::Done;
}

ExitCode RunForget(const Host& host, const std::string& revision) {
  Session session(host, Access::Change);
  const std::uint64_t before = session.Repository().GetCommitCount();
  ForgetHistory(session.Repository(), FindCommit(session.Repository(), revision));
  session.Repository().UpdateStorage();
  const std::uint64_t gone = before - session.Repository().GetCommitCount();
  SaveAndTellFreed(host, session, "forgot " + Plural(gone, "commit"));
  return ExitCode::Done;
}

ExitCode RunSimplify(const Host& host) {
  Session session(host, Access::Change);
  const std::uint64_t before = session.Repository().GetCommitCount();
  session.Repository().SimplifyCommitGraph(true);
  const std::uint64_t gone = before - session.Repository().GetCommitCount();
  SaveAndTellFreed(host, session,
                   "dropped " + Plural(gone, "commit") + " of " + std::to_string(before));
  return ExitCode::Done;
}

ExitCode RunCollect(const Host& host) {
  Session session(host, Access::Change);
  session.Repository().UpdateStorage();
  SaveAndTellFreed(host, session, "removed unreachable objects");
  return ExitCode::Done;
}

}  // namespace Tal
