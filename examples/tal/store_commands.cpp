#include "bare_store.h"
#include "clean_up.h"
#include "command_line.h"
#include "command_table.h"
#include "history.h"
#include "interrupt.h"
#include "parse_time.h"
#include "pending_merge.h"
#include "remotes.h"
#include "salvage.h"
#include "store_files.h"

#include <kit/open/copy.h>
#include <kit/open/verify.h>
#include <kit/text/sizes.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

struct KeepOptions {
  std::uint64_t newest = 0;
  std::string since;
  std::string under;
  bool tips = false;
  bool isDryRun = false;
};

struct CopyOptions {
  std::string target;
  std::string store;
  std::vector<std::string> branches;
};

struct SalvageOptions {
  std::string target;
  bool takesTips = false;
};

/// Reads the size of an option. Throws `Failure` with `Usage` for other text.
std::uint64_t SizeOfOption(const std::string& text) {
  const std::optional<std::uint64_t> size = Kit::ParseSize(text);
  if (!size)
    throw Failure("\"" + Printable(text) + "\" is no size; write one such as 50MB",
                  ExitCode::Usage);
  return *size;
}

Kit::Retention RuleOf(const KeepOptions& options) {
  if (options.newest > 0) return Kit::Retention::KeepNewest(options.newest);
  if (!options.since.empty()) return Kit::Retention::KeepSince(TimeOfOption(options.since));
  if (!options.under.empty()) return Kit::Retention::KeepUnder(SizeOfOption(options.under));
  if (options.tips) return Kit::Retention::TipsAndForks();
  throw Failure("say what to keep: --newest, --since, --under or --tips", ExitCode::Usage);
}

ExitCode RunKeep(const Host& host, const KeepOptions& options) {
  const Kit::Retention rule = RuleOf(options);
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  if (options.isDryRun) {
    const Kit::RetentionReport report =
        session.Document().PreviewForget(rule, {.progress = ShowProgress(host.terminal)}).value();
    Kit::ShortIds ids(session.Document());
    for (const Kit::Version& version : report.forgotten) ids.Add(version.id);
    for (const Kit::Version& version : report.forgotten)
      host.terminal.Say("would forget " + ids.Of(version.id) + " " + Printable(version.summary));
    host.terminal.Say("would forget " + Plural(report.forgotten.size(), "commit") + " and keep " +
                      std::to_string(report.keptVersions) + ", which frees " +
                      Kit::FormatSize(report.freed.sizeBytes) + "; this was a dry run");
    return ExitCode::Done;
  }
  const Kit::RetentionReport report = ForgetVersions(session, rule);
  SaveAndCleanUp(session, "forgot " + Plural(report.forgottenVersions, "commit") + " and kept " +
                              std::to_string(report.keptVersions));
  return ExitCode::Done;
}

/// Copies the history to a new store.
Kit::CopyReport CopyTo(Session& session, const CopyOptions& options, const fs::path& path,
                       StoreKind kind) {
  const std::shared_ptr<Kit::IObjectStore> target = CreateStoreAt(path, kind);
  Kit::CopyReport report = Kit::Copy(session.Store(), *target,
                                     {.branches = options.branches,
                                      .progress = ShowProgress(session.GetHost().terminal)})
                               .value();
  const std::string branch = session.Branch();
  if (std::any_of(report.heads.begin(), report.heads.end(),
                  [&](const Kit::Head& head) { return head.name == branch; }))
    target->SetValue("branch", branch).value();
  return report;
}

ExitCode RunCopy(const Host& host, const CopyOptions& options) {
  const StoreKind kind = ParseStoreKind(options.store);
  Session session(host, Access::Read);
  for (const std::string& name : options.branches) session.Find(name);
  const fs::path target = host.start / options.target;
  std::error_code error;
  const bool is_new = !fs::exists(fs::symlink_status(target, error));
  try {
    const Kit::CopyReport report = CopyTo(session, options, target, kind);
    host.terminal.Say("copied " + Plural(report.writtenObjects, "object") + ", " +
                      Kit::FormatSize(report.writtenBytes) + ", to " + Printable(options.target));
  } catch (...) {
    // A part of a copy would be in the way of the next attempt.
    if (is_new) fs::remove_all(target, error);
    for (const char* ending : {"-wal", "-shm", "-journal"})
      if (is_new && kind == StoreKind::Sqlite) fs::remove(target.string() + ending, error);
    throw;
  }
  return ExitCode::Done;
}

/// A folder that is removed at the end with all it holds.
class ScratchFolder {
 public:
  explicit ScratchFolder(fs::path path) : m_path(std::move(path)) { fs::create_directory(m_path); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }

  const fs::path& Path() const noexcept { return m_path; }

 private:
  fs::path m_path;
};

/// Opens the store. Returns null, and says why, if it is damaged so that its objects have to be
/// looked for: one in files if it can't be opened, one in a SQLite file if anything is damaged.
std::shared_ptr<Kit::IObjectStore> OpenReadableStore(const Host& host, const fs::path& top) {
  try {
    std::shared_ptr<Kit::IObjectStore> store = OpenWholeStore(top);
    // A check would fetch everything that is in the remote alone.
    if (!HasSqlite(top) || !LazyPlace(top).empty()) return store;
    const auto report = Kit::Verify(*store, {.progress = ShowProgress(host.terminal)});
    StopIfInterrupted();
    if (report && report->IsWhole()) return store;
    host.terminal.Say("the store is damaged; looking at the pages of its file");
  } catch (const Failure& failure) {
    if (failure.Code() != ExitCode::Damaged) throw;
    host.terminal.Say(std::string(failure.what()) + "; looking at its objects alone");
  }
  return nullptr;
}

SalvageReport SalvageStore(const Host& host, const SalvageOptions& options, const fs::path& top,
                           const fs::path& target) {
  const SalvageFrom from = options.takesTips ? SalvageFrom::Objects : SalvageFrom::Branches;
  const fs::path scratch = target / ".salvage";
  if (const auto store = OpenReadableStore(host, top)) return Salvage(store, target, from);
  if (HasSqlite(top)) {
    const ScratchFolder folder(scratch);
    const SalvagedFile file =
        SalvageSqlite(top, folder.Path() / "history.sqlite", ShowProgress(host.terminal));
    SalvageReport report = Salvage(file.store, target, from);
    if (!file.hasAllBranches) report.lost.emplace_back("the list of branches");
    return report;
  }
  const BareStore bare(top, scratch);
  return Salvage(bare.Get(), target, SalvageFrom::Objects);
}

ExitCode RunSalvage(const Host& host, const SalvageOptions& options) {
  const fs::path top = FindTop(host.start);
  const fs::path target = host.start / options.target;
  std::error_code error;
  if (!fs::create_directory(target, error))
    throw Failure("cannot create the folder \"" + Printable(options.target) +
                  "\": " + (error ? error.message() : "there is something of that name"));
  const SalvageReport report = SalvageStore(host, options, top, target);
  host.terminal.Say(
      "salvaged " + Plural(report.files, "file") + " of " + Plural(report.branches, "branch") +
      (report.tips.empty() ? "" : " and " + Plural(report.tips.size(), "tip") + " without one") +
      " to " + Printable(options.target));
  for (const std::string& tip : report.tips) host.terminal.Say(Printable(tip));
  for (const std::string& path : report.older)
    host.terminal.Say("from an older commit: " + Printable(path));
  for (const std::string& path : report.lost) host.terminal.Complain("lost: " + Printable(path));
  return report.lost.empty() && report.branches > 0 ? ExitCode::Done : ExitCode::Damaged;
}

}  // namespace

void AddStoreCommands(Commands& commands) {
  commands.Add<KeepOptions>(
      "keep", "Forget all commits but those that a rule keeps, and the heads and tags", RunKeep,
      [](Command& command, KeepOptions& options) {
        command.Count("--newest", options.newest, "Keep this many commits of each branch")
            .Option("--since", options.since,
                    "Keep the commits since a time, such as 2024-05-31 or \"2 weeks ago\"")
            .Option("--under", options.under,
                    "Keep the newest commits that together take no more, such as 50MB")
            .Flag("--tips", options.tips, "Keep the tips and forks")
            .Exclusive({"--newest", "--since", "--under", "--tips"})
            .Flag("--dry-run", options.isDryRun, "Say what would go, and change nothing");
      });
  commands.Add<CopyOptions>(
      "copy", "Copy the history to a new store, which may be of another kind", RunCopy,
      [](Command& command, CopyOptions& options) {
        command.Argument("target", options.target, "The folder or file to create")
            .Required("target")
            .Option("--store", options.store,
                    "The kind: \"folder\", a folder with a store inside, or \"sqlite\", one file")
            .Option("--branch", options.branches,
                    "Copy only this branch; may be given several times");
      });
  commands.Add<SalvageOptions>(
      "salvage", "Write what a damaged store still has into a new folder", RunSalvage,
      [](Command& command, SalvageOptions& options) {
        command.Argument("folder", options.target, "The folder to create, with one for each branch")
            .Required("folder")
            .Flag("--tips", options.takesTips,
                  "Also write the newest commits that no branch reaches, each into a folder of its "
                  "own");
      });
}

}  // namespace Tal
