#include "author.h"
#include "command_line.h"
#include "command_table.h"
#include "history.h"
#include "merging.h"

namespace Tal {
namespace {

struct MergeOptions {
  std::string revision;
  MergeRun run;
};

struct UndoOptions {
  MergeRun run;
};

/// A branch under a name that is free, for a merge of a commit that no branch names. Nobody else
/// sees it, because it is gone before the session saves.
class HeadOfMerge {
 public:
  HeadOfMerge(Session& session, const std::string& revision) : m_session(session) {
    Kit::Workspace& document = session.Document();
    for (const Kit::Head& branch : document.GetBranches()) {
      if (branch.name == revision) m_branch = revision;
    }
    if (!m_branch.empty()) return;
    const Kit::Version version = session.Find(revision);
    m_branch = "merged " + IdOf(version);
    m_isTemporary = static_cast<bool>(document.CreateBranch(m_branch, version.id));
  }

  const std::string& Branch() const noexcept { return m_branch; }
  void Remove() {
    if (m_isTemporary) m_session.Document().RemoveBranch(m_branch).value();
  }

 private:
  Session& m_session;
  std::string m_branch;
  bool m_isTemporary = false;
};

void SayUnrelated(Session& session, const Kit::MergePreview& preview) {
  if (preview.isUpToDate || preview.isFastForward) return;
  Kit::OpenedRepository opened = session.OpenRepository();
  const auto head = opened->GetHead();
  const auto other = opened->GetCommitFromStorage(preview.version.id);
  if (head && other && !opened->GetCommonBase(head, other)) {
    session.GetHost().terminal.Say(
        "the branches have no common commit; every file counts as added");
  }
}

ExitCode RunMerge(const Host& host, const MergeOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  HeadOfMerge other(session, options.revision);
  const Kit::MergePreview preview = session.Document().PreviewMerge(other.Branch()).value();
  SayUnrelated(session, preview);
  return CompleteMerge(session, before, preview, options.run, "merge",
                       "Merge " + Printable(options.revision), [&] { other.Remove(); });
}

ExitCode RunCherryPick(const Host& host, const MergeOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const Kit::Version version = session.Find(options.revision);
  const Kit::MergePreview preview = session.Document().PreviewCherryPick(version.id).value();
  return CompleteMerge(session, before, preview, options.run, "cherry-pick");
}

ExitCode RunRevert(const Host& host, const MergeOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const Kit::Version version = session.Find(options.revision);
  const Kit::MergePreview preview = session.Document().PreviewRevert(version.id).value();
  return CompleteMerge(session, before, preview, options.run, "revert");
}

/// Whose versions are undone: the author's that the options or the environment name.
Kit::CommitOptions UndoerOf(const UndoOptions& options) {
  const Author author = FindAuthor(options.run.author, options.run.email);
  return {.author = author.name, .email = author.email};
}

ExitCode RunUndo(const Host& host, const UndoOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const auto preview = session.Document().PreviewUndo(UndoerOf(options)).value();
  if (!preview) throw Failure("there is nothing of yours to undo on this branch");
  host.terminal.Say("undoing " + ShortId(IdOf(preview->version)) + " " +
                    Printable(preview->version.summary));
  return CompleteMerge(session, before, *preview, options.run, "undo");
}

ExitCode RunRedo(const Host& host, const UndoOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const auto preview = session.Document().PreviewRedo(UndoerOf(options)).value();
  if (!preview) throw Failure("there is nothing of yours to redo on this branch");
  return CompleteMerge(session, before, *preview, options.run, "redo");
}

template <const char* Help>
void Declare(Command& command, MergeOptions& options) {
  command.Json().Argument("commit", options.revision, Help).Required("commit");
  options.run.Declare(command);
}

constexpr char kMergeHelp[] = "The branch or commit to merge";
constexpr char kPickHelp[] = "The commit whose changes to make again";
constexpr char kRevertHelp[] = "The commit whose changes to take back";

void DeclareUndo(Command& command, UndoOptions& options) {
  command.Json();
  options.run.Declare(command);
}

}  // namespace

void AddMergeCommands(Commands& commands) {
  commands.Add<MergeOptions>("merge", "Merge a branch into the current one", RunMerge,
                             Declare<kMergeHelp>);
  commands.Add<MergeOptions>("cherry-pick", "Make the changes of one commit on the current branch",
                             RunCherryPick, Declare<kPickHelp>);
  commands.Add<MergeOptions>("revert", "Take back the changes of one commit", RunRevert,
                             Declare<kRevertHelp>);
  commands.Add<UndoOptions>("undo", "Take back your latest commit that is not undone yet", RunUndo,
                            DeclareUndo);
  commands.Add<UndoOptions>("redo", "Take back the latest undo", RunRedo, DeclareUndo);
}

}  // namespace Tal
