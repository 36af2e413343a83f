#include "author.h"
#include "changes.h"
#include "commands.h"
#include "json.h"
#include "tree_edit.h"

#include <iostream>

namespace Tal {
namespace {

void SaySkipped(const Host& host, const FolderContents& contents) {
  for (const FolderContents::Skipped& skipped : contents.skipped)
    host.terminal.Say("skipped " + Printable(skipped.path) + " (" + skipped.reason + ")");
}

void PrintStatus(const Host& host, const Session& session, const FolderContents& contents,
                 const std::vector<Change>& changes) {
  const CommitPtr head = session.Head();
  std::cout << "branch " << host.terminal.Paint(Colour::Bold, Printable(session.Branch()))
            << (head ? " at " + ShortId(ToUtf8(head->GetId())) : ", no commit yet") << '\n';
  for (const Change& change : changes) {
    std::cout << host.terminal.Paint(ColourOf(change.kind), Name(change.kind)) << '\t'
              << Printable(change.path) << '\n';
  }
  for (const std::string& path : contents.refused)
    std::cout << host.terminal.Paint(Colour::Red, "not UTF-8") << '\t' << Printable(path) << '\n';
  if (changes.empty() && contents.refused.empty()) std::cout << "nothing changed\n";
}

void PrintStatusJson(const Session& session, const FolderContents& contents,
                     const std::vector<Change>& changes) {
  JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("branch").Text(session.Branch());
  json.Key("head");
  if (const CommitPtr head = session.Head()) {
    json.Text(ToUtf8(head->GetId()));
  } else {
    json.Null();
  }
  json.Key("changes").BeginArray();
  for (const Change& change : changes) {
    json.BeginObject();
    json.Key("path").Text(change.path);
    json.Key("change").Text(Name(change.kind));
    json.EndObject();
  }
  json.EndArray();
  json.Key("skipped").BeginArray();
  for (const FolderContents::Skipped& skipped : contents.skipped) {
    json.BeginObject();
    json.Key("path").Text(ToWideExactly(skipped.path) ? skipped.path : Printable(skipped.path));
    json.Key("reason").Text(skipped.reason);
    json.EndObject();
  }
  json.EndArray();
  json.Key("not_utf8").BeginArray();
  for (const std::string& path : contents.refused) json.Text(Printable(path));
  json.EndArray();
  json.EndObject();
}

void RefuseNames(const FolderContents& contents) {
  if (contents.refused.empty()) return;
  std::string names;
  for (const std::string& path : contents.refused) names += "\n  " + Printable(path);
  throw Failure("cannot commit names that are not UTF-8; rename them or list them in .talignore:" +
                names);
}

}  // namespace

ExitCode RunInit(const Host& host) {
  Session::Create(host);
  host.terminal.Say("created an empty store in " +
                    Printable((host.start / Folder::kStoreName).lexically_normal().string()));
  return ExitCode::Done;
}

ExitCode RunStatus(const Host& host) {
  Session session(host, Access::Read);
  const TreePtr tree = RootOf(session.Head());
  const FolderContents contents = session.WorkFolder().List({tree});
  const std::vector<Change> changes =
      CompareFolder(session.WorkFolder(), contents, tree, host.terminal);
  if (host.json) {
    PrintStatusJson(session, contents, changes);
  } else {
    PrintStatus(host, session, contents, changes);
    SaySkipped(host, contents);
  }
  return ExitCode::Done;
}

ExitCode RunCommit(const Host& host, const CommitOptions& options) {
  CheckDescription(options.message);
  const Author author = FindAuthor(options.author, options.email);

  Session session(host, Access::Change);
  const TreePtr before = RootOf(session.Head());
  const FolderContents contents = session.WorkFolder().List({before});
  SaySkipped(host, contents);
  RefuseNames(contents);
  const std::vector<Change> changes =
      CompareFolder(session.WorkFolder(), contents, before, host.terminal);
  if (changes.empty() && !options.allowEmpty)
    throw Failure("nothing to commit: no file changed since the last commit");

  TalVcs::Repository& repository = session.Repository();
  TalVcs::Commit commit(&repository, false);
  commit.ReplaceRoot(&repository, TreeWithChanges(session, before, changes, host.terminal));
  commit.SetDescription(ToWide(options.message));
  commit.SetAuthorName(ToWide(author.name));
  commit.SetAuthorEmail(ToWide(author.email));
  const std::string lost = WhyLost(commit);
  if (!lost.empty()) throw Failure(lost, ExitCode::Usage);

  const CommitPtr stored = repository.DoCommit(commit);
  session.Save();
  host.terminal.Say("committed " + ShortId(ToUtf8(stored->GetId())) + " on " +
                    Printable(session.Branch()) + ": " + Plural(changes.size(), "file"));
  return ExitCode::Done;
}

}  // namespace Tal
