#include "author.h"
#include "command_table.h"
#include "conflicts.h"
#include "folder_update.h"
#include "history.h"
#include "interrupt.h"

#include <iostream>

namespace Tal {
namespace {

struct MergeOptions {
  std::string branch;
  ConflictOptions conflicts;
  bool isDryRun = false;
  std::string author;
  std::string email;
};

constexpr const char* kWhole = "nothing to do";

const char* WayOf(const Kit::MergePreview& preview) {
  if (preview.isUpToDate) return kWhole;
  return preview.isFastForward ? "fast-forward" : "merge";
}

void PrintOutcome(const Host& host, const Kit::MergePreview& preview,
                  const DecidedConflicts& decided) {
  if (!host.json) {
    for (const DecidedConflict& conflict : decided.list) {
      std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(conflict.path)
                << '\t' << conflict.kind << '\t' << conflict.choice << '\n';
    }
    if (decided.list.empty()) std::cout << WayOf(preview) << ", no conflicts\n";
    return;
  }
  JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("way").Text(WayOf(preview));
  json.Key("undecided").Number(static_cast<std::int64_t>(decided.CountUndecided()));
  json.Key("conflicts").BeginArray();
  for (const DecidedConflict& conflict : decided.list) {
    json.BeginObject();
    json.Key("path").Text(conflict.path);
    json.Key("kind").Text(conflict.kind);
    json.Key("choice").Text(conflict.choice);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

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
  Session session(host, AccessFor(options.isDryRun));
  const FileTree before = session.HeadFiles();
  HeadOfMerge other(session, options.branch);
  Kit::Workspace& document = session.Document();
  const Kit::MergePreview preview = document.PreviewMerge(other.Branch()).value();
  SayUnrelated(session, preview);
  const DecidedConflicts decided = Decide(session, preview, options.conflicts);
  if (const std::size_t undecided = decided.CountUndecided()) {
    PrintOutcome(host, preview, decided);
    if (options.isDryRun) return ExitCode::Differs;
    throw Failure(
        Plural(undecided, "conflict") +
        " to decide; nothing is merged. Use --ours, --theirs, --base, --newest or --interactive");
  }
  if (options.isDryRun || host.json) PrintOutcome(host, preview, decided);
  if (preview.isUpToDate) {
    if (!options.isDryRun)
      host.terminal.Say("nothing to merge: the current branch has every change");
    return ExitCode::Done;
  }
  const Author author = FindAuthor(options.author, options.email);
  static_cast<void>(document
                        .Merge(preview, decided.decisions,
                               {.message = "Merge " + Printable(options.branch),
                                .author = author.name,
                                .email = author.email,
                                .progress = ShowProgress(host.terminal)})
                        .value());
  other.Remove();
  const std::size_t files = SaveWithFolder(session, before);
  if (options.isDryRun) {
    host.terminal.Say(Plural(files, "file") + " would change; this was a dry run");
    return ExitCode::Done;
  }
  for (const DecidedConflict& conflict : decided.list)
    host.terminal.Say(Printable(conflict.path) + ": " + conflict.kind + ", took " +
                      conflict.choice);
  host.terminal.Say(std::string(WayOf(preview)) + " done: " + Printable(session.Branch()) +
                    " is at " + ShortId(IdOf(*session.Head())));
  return ExitCode::Done;
}

}  // namespace

void AddMergeCommands(Commands& commands) {
  commands.Add<MergeOptions>(
      "merge", "Merge a branch into the current one", RunMerge,
      [](Command& command, MergeOptions& options) {
        command.Json().Argument("branch", options.branch, "The branch to merge").Required("branch");
        DeclareConflicts(command, options.conflicts);
        command.Flag("--dry-run", options.isDryRun, "List the conflicts and change nothing")
            .Option("--author", options.author, "The author's name, instead of TAL_AUTHOR")
            .Option("--email", options.email, "The author's e-mail, instead of TAL_EMAIL");
      });
}

}  // namespace Tal
