#include "author.h"
#include "commands.h"
#include "conflicts.h"
#include "folder_update.h"

#include <iostream>

namespace Tal {
namespace {

/// What a merge comes to: one of these ways, and for `Combine` a tree.
struct Outcome {
  enum class Way { Nothing, Forward, Combine };

  Way way = Way::Nothing;
  TreePtr tree;
  Conflicts conflicts;
};

bool Same(const CommitPtr& a, const CommitPtr& b) { return a && b && a->GetId() == b->GetId(); }

bool SameTrees(const TreePtr& a, const TreePtr& b) {
  return a && b ? a->GetId() == b->GetId() : !a && !b;
}

/// Where a merge has put a file beside a changed folder of the same name, without asking, asks
/// whose entry to take. Neither a folder nor a store could hold both.
TreePtr WithoutTwofoldNames(TalVcs::Repository& repository, TreePtr merged,
                            const TalVcs::MergeTrees& trees,
                            const TalVcs::ConflictResolver& resolver) {
  for (;;) {
    const WideString path = ToWide(FindFileAndFolder(merged));
    if (path.IsEmpty()) return merged;
    const TalVcs::ConflictChoice choice = resolver(TalVcs::Helpers::SplitVcsPath(path), trees);
    const TreePtr& side = choice == TalVcs::ConflictChoice::Right  ? trees.right
                          : choice == TalVcs::ConflictChoice::Root ? trees.root
                                                                   : trees.left;
    merged.write()->RemoveObject(&repository, path);
    if (!side) continue;
    if (const BlobPtr blob = side->GetDeepBlob(path)) {
      merged.write()->AddBlob(&repository, path, *blob);
    } else if (const TreePtr tree = side->GetDeepTree(path)) {
      merged.write()->AddTree(&repository, path, *tree);
    }
  }
}

/// Finds out what a merge of `commit` into the current branch comes to. Stores objects in
/// `repository`, and moves nothing.
Outcome TryMerge(const Host& host, TalVcs::Repository& repository, const CommitPtr& commit,
                 const MergeOptions& options) {
  Outcome outcome;
  const CommitPtr head = repository.GetHead();
  const CommitPtr base = repository.GetCommonBase(head, commit);
  outcome.tree = RootOf(commit);
  if (!head || Same(base, head)) {
    if (!Same(head, commit)) outcome.way = Outcome::Way::Forward;
    return outcome;
  }
  if (Same(base, commit)) {
    outcome.tree = RootOf(head);
    return outcome;
  }
  if (!base) host.terminal.Say("the branches have no common commit; every file counts as added");

  const TalVcs::MergeTrees trees{RootOf(head), RootOf(base), RootOf(commit)};
  const auto conflicts = std::make_shared<Conflicts>();
  const TalVcs::always_return_t<TalVcs::TreeConflictChoice> descend{
      TalVcs::TreeConflictChoice::Descend};
  const TalVcs::ConflictResolver resolver =
      Recorded(MakeResolver(host.terminal, options), conflicts);
  TreePtr merged;
  if (trees.left || trees.right) {
    merged = TalVcs::ThreeWayMerge(&repository, trees, {resolver, descend});
    if (!merged) throw Failure("cannot merge the trees; branches and files are unchanged");
  }
  merged = WithoutTwofoldNames(repository, merged, trees, resolver);
  outcome.tree = WithoutEmptyFolders(repository, merged);
  outcome.conflicts = *conflicts;
  const bool changes = !SameTrees(outcome.tree, trees.left) || CountUndecided(*conflicts) > 0;
  outcome.way = changes ? Outcome::Way::Combine : Outcome::Way::Nothing;
  return outcome;
}

const char* WayName(Outcome::Way way) {
  switch (way) {
    case Outcome::Way::Nothing:
      return "nothing to do";
    case Outcome::Way::Forward:
      return "fast-forward";
    case Outcome::Way::Combine:
      return "merge";
  }
  return "";
}

void PrintAsText(const Host& host, const Outcome& outcome) {
  for (const Conflict& conflict : outcome.conflicts) {
    std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(conflict.path)
              << '\t' << conflict.kind << '\t' << Name(conflict.choice) << '\n';
  }
  if (outcome.conflicts.empty()) std::cout << WayName(outcome.way) << ", no conflicts\n";
}

void PrintAsJson(const Outcome& outcome) {
  JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("way").Text(WayName(outcome.way));
  json.Key("undecided").Number(static_cast<std::int64_t>(CountUndecided(outcome.conflicts)));
  json.Key("conflicts").BeginArray();
  for (const Conflict& conflict : outcome.conflicts) {
    json.BeginObject();
    json.Key("path").Text(conflict.path);
    json.Key("kind").Text(conflict.kind);
    json.Key("choice").Text(Name(conflict.choice));
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

void PrintOutcome(const Host& host, const Outcome& outcome) {
  if (host.json) {
    PrintAsJson(outcome);
  } else {
    PrintAsText(host, outcome);
  }
}

/// Works on a copy of the repository, so that not even an object is added to it.
ExitCode DryRun(const Host& host, const MergeOptions& options) {
  Session session(host, Access::Read);
  TalVcs::Repository copy(session.Repository());
  const Outcome outcome = TryMerge(host, copy, FindCommit(copy, options.branch), options);
  PrintOutcome(host, outcome);
  if (CountUndecided(outcome.conflicts) > 0) return ExitCode::Differs;
  const FolderUpdate update(session.WorkFolder(), RootOf(session.Head()), outcome.tree);
  host.terminal.Say(Plural(update.FileCount(), "file") + " would change; this was a dry run");
  return ExitCode::Done;
}

void CommitMerge(TalVcs::Repository& repository, const TreePtr& tree, const MergeOptions& options) {
  const Author author = FindAuthor(options.author, options.email);
  TalVcs::Commit commit(&repository, false);
  commit.ReplaceRoot(&repository, tree);
  commit.SetDescription(ToWide("Merge " + Printable(options.branch)));
  commit.SetAuthorName(ToWide(author.name));
  commit.SetAuthorEmail(ToWide(author.email));
  repository.DoCommit(commit);
}

}  // namespace

ExitCode RunMerge(const Host& host, const MergeOptions& options) {
  if (options.dryRun) return DryRun(host, options);
  Session session(host, Access::Change);
  TalVcs::Repository& repository = session.Repository();
  const CommitPtr commit = FindCommit(repository, options.branch);
  const TreePtr before = RootOf(session.Head());
  const Outcome outcome = TryMerge(host, repository, commit, options);
  if (const std::size_t undecided = CountUndecided(outcome.conflicts)) {
    PrintOutcome(host, outcome);
    throw Failure(
        Plural(undecided, "conflict") +
        " to decide; nothing is merged. Use --ours, --theirs, --base, --newest or --interactive");
  }
  switch (outcome.way) {
    case Outcome::Way::Nothing:
      if (host.json) PrintOutcome(host, outcome);
      host.terminal.Say("nothing to merge: the current branch has every change");
      return ExitCode::Done;
    case Outcome::Way::Forward:
      repository.Merge(commit, {});
      break;
    case Outcome::Way::Combine:
      CommitMerge(repository, outcome.tree, options);
      break;
  }
  repository.UpdateStorage();
  SaveWithFolder(session, before);
  if (host.json) PrintOutcome(host, outcome);
  for (const Conflict& conflict : outcome.conflicts)
    host.terminal.Say(Printable(conflict.path) + ": " + conflict.kind + ", took " +
                      Name(conflict.choice));
  host.terminal.Say(std::string(WayName(outcome.way)) + " done: " + Printable(session.Branch()) +
                    " is at " + ShortId(ToUtf8(session.Head()->GetId())));
  return ExitCode::Done;
}

}  // namespace Tal
