// An undo is a version on top that takes back another one, and a redo is one that takes back an
// undo. Each names the version that it takes back:
//
//     A   B   U(B)   U(A)   R(U(A))
//
// From the newest on, a version that a later one has taken back doesn't count: R takes back U(A),
// so A counts and B doesn't. The next undo takes back A, the next redo U(B).

#include <kit/open/internal/reporter.h>
#include <kit/workspace/internal/undo_search.h>
#include <kit/workspace/internal/workspace_state.h>

#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

namespace {

enum class Wanted { Edit, Undo };

Result<cow_ptr<Commit>> Search(WorkspaceState& state, const CommitOptions& options, Wanted wanted) {
  Reporter reporter(options.progress);
  Status status = reporter.Begin("search");
  const Signature mine = state.SignatureOf(options.author, options.email, options.time);
  const bool is_anybody = mine.author.empty() && mine.email.empty();
  std::unordered_set<Id> taken_back;
  for (cow_ptr<Commit> commit = state.GetHead(); commit; commit = commit->GetParent()) {
    if (status) status = reporter.Add(1);
    if (!status) return std::move(status).error();
    state.PassVersion();
    const Version version = DescribeCommit(*commit);
    if (taken_back.contains(version.id)) continue;
    const bool is_mine =
        is_anybody || (version.author == mine.author && version.email == mine.email);
    if (!IsEmpty(version.redoes)) {
      taken_back.insert(version.redoes);
    } else if (!IsEmpty(version.undoes)) {
      if (wanted == Wanted::Undo && is_mine) return commit;
      taken_back.insert(version.undoes);
    } else if (is_mine && !version.isMachineMade) {
      return wanted == Wanted::Edit ? commit : cow_ptr<Commit>();
    }
  }
  return cow_ptr<Commit>();
}

}  // namespace

Result<cow_ptr<Commit>> FindVersionToUndo(WorkspaceState& state, const CommitOptions& options) {
  return Search(state, options, Wanted::Edit);
}

Result<cow_ptr<Commit>> FindVersionToRedo(WorkspaceState& state, const CommitOptions& options) {
  return Search(state, options, Wanted::Undo);
}

}  // namespace TalVcs::Kit
