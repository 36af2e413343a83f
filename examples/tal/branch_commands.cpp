#include "commands.h"
#include "folder_update.h"
#include "history.h"
#include "json.h"

#include <iostream>

namespace Tal {
namespace {

void PrintBranches(const Host& host, const Session& session,
                   const std::vector<BranchTip>& branches) {
  for (const BranchTip& branch : branches) {
    const bool isCurrent = branch.name == session.Branch();
    std::cout << (isCurrent ? "* " : "  ")
              << host.terminal.Paint(isCurrent ? Colour::Green : Colour::Plain,
                                     Printable(branch.name));
    if (branch.head) {
      std::cout << ' ' << host.terminal.Paint(Colour::Yellow, ShortId(ToUtf8(branch.head->GetId())))
                << ' ' << Printable(ToUtf8(branch.head->GetDesciption()));
    }
    std::cout << '\n';
  }
}

void PrintBranchesJson(const Session& session, const std::vector<BranchTip>& branches) {
  JsonWriter json(std::cout);
  json.BeginArray();
  for (const BranchTip& branch : branches) {
    json.BeginObject();
    json.Key("name").Text(branch.name);
    json.Key("current").Bool(branch.name == session.Branch());
    json.Key("head");
    if (branch.head) {
      json.Text(ToUtf8(branch.head->GetId()));
    } else {
      json.Null();
    }
    json.EndObject();
  }
  json.EndArray();
}

void CreateBranch(Session& session, const std::string& name, const std::string& start) {
  CheckBranchName(name);
  TalVcs::Repository& repository = session.Repository();
  const CommitPtr commit = FindCommit(repository, start.empty() ? "HEAD" : start);
  if (!repository.CreateBranch(ToWide(name), commit))
    throw Failure("cannot create the branch \"" + Printable(name) + "\": it exists already");
}

void RemoveBranch(Session& session, const std::string& name) {
  if (name == session.Branch())
    throw Failure("cannot remove \"" + Printable(name) +
                  "\": it is the current branch; switch to another one first");
  if (!session.Repository().RemoveBranch(ToWide(name)))
    throw Failure("cannot remove \"" + Printable(name) + "\": there is no such branch");
}

}  // namespace

ExitCode RunBranch(const Host& host, const BranchOptions& options) {
  if (options.name.empty()) {
    Session session(host, Access::Read);
    const std::vector<BranchTip> branches = ListBranches(session.Repository());
    if (host.json) {
      PrintBranchesJson(session, branches);
    } else {
      PrintBranches(host, session, branches);
    }
    return ExitCode::Done;
  }
  Session session(host, Access::Change);
  if (options.remove) {
    RemoveBranch(session, options.name);
  } else {
    CreateBranch(session, options.name, options.start);
  }
  session.Save();
  host.terminal.Say((options.remove ? "removed branch " : "created branch ") +
                    Printable(options.name));
  return ExitCode::Done;
}

ExitCode RunSwitch(const Host& host, const SwitchOptions& options) {
  Session session(host, Access::Change);
  TalVcs::Repository& repository = session.Repository();
  if (options.create) {
    CreateBranch(session, options.name, "");
    session.Save();
  }
  if (!repository.BranchExist(ToWide(options.name)))
    throw Failure("cannot switch to \"" + Printable(options.name) +
                  "\": there is no such branch; -c creates it");

  FolderUpdate update(session.WorkFolder(), RootOf(session.Head()),
                      RootOf(repository.GetHead(ToWide(options.name))),
                      options.restore ? MissingFiles::Restore : MissingFiles::Respect);
  const std::size_t files = update.FileCount();
  update.Apply();
  try {
    session.SetBranch(options.name);
  } catch (const Failure&) {
    update.Undo();
    throw;
  }
  host.terminal.Say("now on " + Printable(options.name) + ", " + Plural(files, "file") +
                    " updated");
  return ExitCode::Done;
}

}  // namespace Tal
