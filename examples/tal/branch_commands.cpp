#include "command_line.h"
#include "command_table.h"
#include "folder_update.h"
#include "history.h"
#include "pending_merge.h"

#include <kit/text/json_writer.h>

#include <iostream>

namespace Tal {
namespace {

struct NameOptions {
  std::string name;
  std::string start;
  bool removes = false;
  bool isDryRun = false;
};

struct SwitchOptions {
  std::string name;
  bool creates = false;
  bool restores = false;
  bool isDryRun = false;
};

/// The two kinds of names for versions: branches, which move, and tags, which don't.
enum class NameKind { Branch, Tag };

const char* WordFor(NameKind kind) { return kind == NameKind::Branch ? "branch" : "tag"; }

void PrintNames(const Host& host, Session& session, const std::vector<Kit::Head>& names,
                NameKind kind) {
  const Kit::ShortIds ids(session.Document());
  for (const Kit::Head& name : names) {
    const bool is_current = kind == NameKind::Branch && name.name == session.Branch();
    std::cout << (is_current ? "* " : "  ")
              << host.terminal.Paint(is_current ? Colour::Green : Colour::Plain,
                                     Printable(name.name));
    if (!name.id.View().IsEmpty()) {
      const Kit::Version version = session.Document().Find(ToUtf8(name.id)).value();
      std::cout << ' ' << host.terminal.Paint(Colour::Yellow, ids.Of(version.id)) << ' '
                << Printable(version.summary);
    }
    std::cout << '\n';
  }
}

void PrintNamesJson(Session& session, const std::vector<Kit::Head>& names, NameKind kind) {
  Kit::JsonWriter json(std::cout);
  json.BeginArray();
  for (const Kit::Head& name : names) {
    json.BeginObject();
    json.Key("name").Text(name.name);
    if (kind == NameKind::Branch) json.Key("current").Bool(name.name == session.Branch());
    json.Key("head");
    if (name.id.View().IsEmpty()) {
      json.Null();
    } else {
      json.Text(ToUtf8(name.id));
    }
    json.EndObject();
  }
  json.EndArray();
}

ExitCode ListNames(const Host& host, NameKind kind) {
  Session session(host, Access::Read);
  std::vector<Kit::Head> names =
      kind == NameKind::Branch ? ListBranches(session) : session.Document().GetTags();
  if (kind == NameKind::Tag)  // stashes have a list of their own
    std::erase_if(names, [](const Kit::Head& tag) { return tag.name.starts_with("stash/"); });
  if (host.json) {
    PrintNamesJson(session, names, kind);
  } else {
    PrintNames(host, session, names, kind);
  }
  return ExitCode::Done;
}

/// Throws what went wrong with a name in the words of a command.
void Check(const Kit::Status& status, const std::string& what, const std::string& name,
           const char* why, Kit::ErrorCode code) {
  if (status) return;
  if (status.error().code == code)
    throw Failure("cannot " + what + " \"" + Printable(name) + "\": " + why);
  status.value();
}

void Create(Session& session, NameKind kind, const std::string& name, const std::string& start) {
  CheckBranchName(name);
  const Kit::Version version = session.FindOrHead(start);
  Kit::Workspace& document = session.Document();
  Check(kind == NameKind::Branch ? document.CreateBranch(name, version.id)
                                 : document.CreateTag(name, version.id),
        std::string("create the ") + WordFor(kind), name, "it exists already",
        Kit::ErrorCode::Conflict);
}

void Remove(Session& session, NameKind kind, const std::string& name) {
  const std::string what = std::string("remove the ") + WordFor(kind);
  if (kind == NameKind::Branch && name == session.Branch())
    throw Failure("cannot " + what + " \"" + Printable(name) +
                  "\": it is the current branch; switch to another one first");
  Kit::Workspace& document = session.Document();
  Check(kind == NameKind::Branch ? document.RemoveBranch(name) : document.RemoveTag(name), what,
        name, "there is none", Kit::ErrorCode::NotFound);
}

ExitCode RunName(const Host& host, const NameOptions& options, NameKind kind) {
  if (options.name.empty()) return ListNames(host, kind);
  Session session(host, AccessFor(options.isDryRun));
  if (options.removes) {
    Remove(session, kind, options.name);
  } else {
    Create(session, kind, options.name, options.start);
  }
  session.Save();
  host.terminal.Say(std::string(options.isDryRun ? "would have " : "") +
                    (options.removes ? "removed " : "created ") + WordFor(kind) + " " +
                    Printable(options.name));
  return ExitCode::Done;
}

ExitCode RunBranch(const Host& host, const NameOptions& options) {
  return RunName(host, options, NameKind::Branch);
}

ExitCode RunTag(const Host& host, const NameOptions& options) {
  return RunName(host, options, NameKind::Tag);
}

ExitCode RunSwitch(const Host& host, const SwitchOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  const FileTree before = session.HeadFiles();
  if (options.creates) Create(session, NameKind::Branch, options.name, "");
  if (options.name != session.Branch()) {
    Check(session.Document().Switch(options.name), "switch to", options.name,
          "there is no such branch; -c creates it", Kit::ErrorCode::NotFound);
  }
  const std::size_t files = SaveWithFolder(
      session, before, options.restores ? MissingFiles::Restore : MissingFiles::Respect);
  host.terminal.Say((options.isDryRun ? "would be on " : "now on ") + Printable(options.name) +
                    ", " + Plural(files, "file") + " updated");
  return ExitCode::Done;
}

void DeclareName(Command& command, NameOptions& options) {
  command.Json()
      .Argument("name", options.name, "The name to create")
      .Argument("commit", options.start,
                "The commit that it names, instead of the head of the current branch")
      .Flag("-d,--delete", options.removes, "Remove the name instead of creating it")
      .Needs("--delete", "name")
      .Flag("--dry-run", options.isDryRun, "Check it and change nothing");
}

}  // namespace

void AddBranchCommands(Commands& commands) {
  commands.Add<NameOptions>("branch", "List branches, or create or remove one", RunBranch,
                            DeclareName);
  commands.Add<NameOptions>("tag",
                            "List tags, which keep a name for a commit, or create or remove one",
                            RunTag, DeclareName);
  commands.Add<SwitchOptions>(
      "switch", "Make a branch the current one and write its files into the folder", RunSwitch,
      [](Command& command, SwitchOptions& options) {
        command.Argument("name", options.name, "The branch")
            .Required("name")
            .Flag("-c,--create", options.creates, "Create the branch first")
            .Flag("--restore", options.restores,
                  "Also write missing files that are the same on both branches")
            .Flag("--dry-run", options.isDryRun, "Check it and change nothing");
      });
}

}  // namespace Tal
