#include "command_line.h"
#include "command_table.h"
#include "folder_update.h"
#include "history.h"
#include "interrupt.h"
#include "pending_merge.h"
#include "remotes.h"
#include "session.h"
#include "store_files.h"

#include <kit/sharing/remote.h>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kFirstRemote = "remote";
constexpr int kMostAttempts = 50;

struct CloneOptions {
  std::string place;
  std::string folder;
  bool isLazy = false;
};

struct RemoteOptions {
  std::string place;
  std::string name;
  std::string creates;
  bool removes = false;
};

struct FetchOptions {
  std::string remote;
  bool prunes = false;
};

struct PushOptions {
  std::string remote;
};

struct SyncOptions {
  std::string remote;
  bool takesMine = false;
  bool takesTheirs = false;
};

Kit::Remote OpenRemote(const Session& session, const std::string& name) {
  const fs::path store_path = session.WorkFolder().StorePath();
  if (!LazyPlace(session.WorkFolder().Top()).empty()) {
    throw Failure("the folder works on its remote directly; there is nothing to bring over");
  }
  const RemotePlace found = FindRemote(store_path, name);
  return Kit::Remote(OpenPlace(found.place), found.name);
}

ExitCode RunRemote(const Host& host, const RemoteOptions& options) {
  Session session(host, options.place.empty() && !options.removes ? Access::Read : Access::Change);
  const fs::path store_path = session.WorkFolder().StorePath();
  std::vector<RemotePlace> remotes = ReadRemotes(store_path);
  const std::string name = options.name.empty() ? kFirstRemote : options.name;
  if (options.removes) {
    // The argument is a place elsewhere, and the user may mean either by it.
    const std::size_t count = std::erase_if(remotes, [&](const RemotePlace& remote) {
      if (options.place.empty()) return remote.name == name;
      const bool is_meant = options.name.empty() || remote.name == options.name;
      return is_meant && (remote.name == options.place || remote.place == options.place ||
                          remote.place == CompletePlace(options.place, host.start));
    });
    if (count == 0)
      throw Failure("there is no remote \"" +
                    Printable(options.place.empty() ? name : options.place) + "\"");
    WriteRemotes(store_path, remotes);
    host.terminal.Say("forgot " + Plural(count, "remote") + "; what it has stays there");
    return ExitCode::Done;
  }
  if (options.place.empty()) {
    for (const RemotePlace& remote : remotes)
      std::cout << Printable(remote.name) << '\t' << Printable(remote.place) << '\n';
    return ExitCode::Done;
  }
  CheckBranchName(name);
  if (name == "tags" || name.find_first_of("\n\t") != name.npos)
    throw Failure("a remote can't be named \"" + Printable(name) + "\"", ExitCode::Usage);
  const std::string place = CompletePlace(options.place, host.start);
  if (!options.creates.empty()) CreateStoreAt(place, ParseStoreKind(options.creates));
  OpenPlace(place);
  std::erase_if(remotes, [&](const RemotePlace& remote) { return remote.name == name; });
  remotes.push_back({name, place});
  WriteRemotes(store_path, remotes);
  host.terminal.Say("the remote \"" + Printable(name) + "\" is " + Printable(place));
  return ExitCode::Done;
}

/// Makes the folder of a clone, in which nothing may be.
Host MakeFolder(const Host& host, const std::string& name) {
  Host there = host;
  if (!name.empty()) there.start = host.start / name;
  std::error_code error;
  fs::create_directories(there.start, error);
  if (error || !fs::is_empty(there.start, error) || error)
    throw Failure("cannot clone: \"" + Printable(name.empty() ? host.start.string() : name) +
                  "\" is no empty folder");
  return there;
}

ExitCode RunClone(const Host& host, const CloneOptions& options) {
  const std::string place = CompletePlace(options.place, host.start);
  const std::shared_ptr<Kit::IObjectStore> store = OpenPlace(place);
  Kit::Remote remote(store, kFirstRemote);
  const std::string branch = remote.FindMainBranch().value();
  const Host there = MakeFolder(host, options.folder);
  CreateStore(there.start, StoreKind::Folder);
  try {
    if (options.isLazy) MakeLazy(there.start, place);
    Session session(there, Access::Change);
    WriteRemotes(session.WorkFolder().StorePath(), {{kFirstRemote, place}});
    session.SavedStore().SetValue("branch", branch).value();
    if (!options.isLazy) {
      remote.Fetch(session.SavedStore(), {.progress = ShowProgress(host.terminal)}).value();
      session.Document().Pull(remote).value();
    }
    const std::size_t files = SaveWithFolder(session, FileTree());
    host.terminal.Say("cloned " + Plural(files, "file") + " of " + Printable(session.Branch()));
  } catch (...) {
    std::error_code error;
    fs::remove_all(there.start / Folder::kStoreName, error);
    throw;
  }
  return ExitCode::Done;
}

ExitCode RunFetch(const Host& host, const FetchOptions& options) {
  Session session(host, Access::Change);
  Kit::Remote remote = OpenRemote(session, options.remote);
  const Kit::FetchReport report =
      remote
          .Fetch(session.SavedStore(),
                 {.removesGone = options.prunes, .progress = ShowProgress(host.terminal)})
          .value();
  for (const Kit::HeadMove& move : report.moves)
    std::cout << Printable(move.name) << '\t'
              << (move.desired.View().IsEmpty() ? "removed" : ShortIdOf(session, move.desired))
              << '\n';
  host.terminal.Say("fetched " + Plural(report.newCommits, "commit") + ", " +
                    Plural(report.writtenObjects, "object"));
  return ExitCode::Done;
}

ExitCode RunPush(const Host& host, const PushOptions& options) {
  Session session(host, Access::Change);
  Kit::Remote remote = OpenRemote(session, options.remote);
  const std::string branch = session.Branch();
  const auto pushed =
      remote.Push(session.SavedStore(), branch, {.progress = ShowProgress(host.terminal)});
  if (!pushed && pushed.error().code == Kit::ErrorCode::Conflict)
    throw Failure("the remote has commits that " + Printable(branch) +
                  " lacks; nothing is pushed. tal sync brings both together");
  const Kit::PushReport& report = pushed.value();
  host.terminal.Say("pushed " + Plural(report.newCommits, "commit") + ": " + Printable(branch) +
                    " of the remote is at " + ShortIdOf(session, report.head));
  return ExitCode::Done;
}

/// Returns the decisions about all conflicts if the options say whose side to take.
Kit::Decisions Decide(const Kit::MergePreview& preview, const SyncOptions& options) {
  Kit::Decisions decisions;
  for (const Kit::Conflict& conflict : preview.conflicts) {
    // The replay puts the commits of this folder on top of the others': they come in.
    if (options.takesMine) decisions.emplace(conflict.path, Kit::Decision::Theirs());
    if (options.takesTheirs) decisions.emplace(conflict.path, Kit::Decision::Ours());
  }
  return decisions;
}

/// Brings the commits of the remote into the branch and the folder. Throws `Failure` if there are
/// conflicts to decide.
Kit::SyncReport PullIntoFolder(const Host& host, Kit::Remote& remote, Session& session,
                               const SyncOptions& options) {
  remote.Fetch(session.SavedStore(), {.progress = ShowProgress(host.terminal)}).value();
  const FileTree before = session.HeadFiles();
  Kit::SyncOptions wishes;
  wishes.decide = [&options](const Kit::MergePreview& preview) {
    return Kit::Result(Decide(preview, options));
  };
  Kit::SyncReport report = session.Document().Pull(remote, wishes).value();
  if (report.undecided) {
    for (const Kit::Conflict& conflict : report.undecided->conflicts)
      std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(conflict.path)
                << '\t' << Printable(report.undecided->version.summary) << '\n';
    throw Failure(Plural(report.undecided->conflicts.size(), "conflict") +
                  " to decide; nothing is synchronised. Use --mine or --theirs");
  }
  SaveWithFolder(session, before);
  return report;
}

/// Waits for a time by chance, so that two who meet don't meet again.
void WaitAWhile() {
  std::random_device random;
  std::this_thread::sleep_for(std::chrono::milliseconds(random() % 200));
}

ExitCode RunSync(const Host& host, const SyncOptions& options) {
  for (int attempt = 1;; ++attempt) {
    StopIfInterrupted();
    Session session(host, Access::Change);
    RefuseDuringMerge(session);
    Kit::Remote remote = OpenRemote(session, options.remote);
    const Kit::SyncReport report = PullIntoFolder(host, remote, session, options);
    const std::string branch = session.Branch();
    if (!session.Head()) {
      host.terminal.Say("there is nothing to synchronise yet");
      return ExitCode::Done;
    }
    const auto pushed =
        remote.Push(session.SavedStore(), branch, {.progress = ShowProgress(host.terminal)});
    if (pushed) {
      host.terminal.Say(Printable(branch) + " and the remote are at " +
                        ShortIdOf(session, pushed->head) + ": " +
                        Plural(pushed->newCommits, "commit") + " pushed, " +
                        Plural(report.replayedVersions, "commit") + " replayed");
      return ExitCode::Done;
    }
    const Kit::ErrorCode code = pushed.error().code;
    const bool is_race = code == Kit::ErrorCode::Conflict || code == Kit::ErrorCode::Unknown;
    if (!is_race || attempt == kMostAttempts) pushed.value();
    WaitAWhile();
  }
}

}  // namespace

void AddSharingCommands(Commands& commands) {
  commands.Add<CloneOptions>(
      "clone", "Make a folder of a history that others share", RunClone,
      [](Command& command, CloneOptions& options) {
        command
            .Argument("place", options.place,
                      "A folder with a store, a SQLite file, or postgresql://...#name")
            .Argument("folder", options.folder, "The new folder; without it, the one of -C")
            .Required("place")
            .Flag("--lazy", options.isLazy, "Work on the remote directly, and keep what was read");
      });
  commands.Add<RemoteOptions>(
      "remote", "List, set or remove the stores that others share a history through", RunRemote,
      [](Command& command, RemoteOptions& options) {
        command.Argument("place", options.place, "Where the store is; without it, list all")
            .Option("--name", options.name, "The name, instead of \"remote\"")
            .Option("--create", options.creates, "Make the store: \"folder\" or \"sqlite\"")
            .Needs("--create", "place")
            .Flag("-d,--delete", options.removes, "Forget the remote of that name or place");
      });
  commands.Add<FetchOptions>("fetch", "Bring the branches of the remote, as \"remote/...\"",
                             RunFetch, [](Command& command, FetchOptions& options) {
                               command.Option("--remote", options.remote, "The name of the remote")
                                   .Flag("--prune", options.prunes,
                                         "Remove branches that the remote no longer has");
                             });
  commands.Add<PushOptions>("push", "Bring the current branch to the remote", RunPush,
                            [](Command& command, PushOptions& options) {
                              command.Option("--remote", options.remote, "The name of the remote");
                            });
  commands.Add<SyncOptions>(
      "sync", "Bring the remote's commits here and the folder's commits there", RunSync,
      [](Command& command, SyncOptions& options) {
        command.Option("--remote", options.remote, "The name of the remote")
            .Flag("--mine", options.takesMine, "In conflicts, take this folder's side")
            .Flag("--theirs", options.takesTheirs, "In conflicts, take what is in the remote")
            .Exclusive({"--mine", "--theirs"});
      });
}

}  // namespace Tal
