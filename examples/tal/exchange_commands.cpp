#include "command_line.h"
#include "command_table.h"
#include "folder_update.h"
#include "git/export.h"
#include "git/import.h"
#include "report/report.h"
#include "session.h"
#include "write_file.h"

#include <kit/text/sizes.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace fs = std::filesystem;

namespace Tal {
namespace {

struct ReportCommandOptions {
  std::string file;
  std::string title;
  std::uint64_t limitKib = 16 << 10;
};

struct ExportOptions {
  std::string output;
};

struct ImportOptions {
  std::string file;
};

void SayAll(const Host& host, const std::vector<std::string>& notes) {
  constexpr std::size_t kMost = 20;
  for (std::size_t i = 0; i < notes.size() && i < kMost; ++i) host.terminal.Say(notes[i]);
  if (notes.size() > kMost) {
    host.terminal.Say("and " + std::to_string(notes.size() - kMost) + " more");
  }
}

ExitCode RunReport(const Host& host, const ReportCommandOptions& options) {
  Session session(host, Access::Read);
  const fs::path top = fs::absolute(session.WorkFolder().Top());
  ReportOptions wanted;
  wanted.title = options.title.empty() ? top.lexically_normal().filename().string() : options.title;
  wanted.mostBytes = std::min(options.limitKib, UINT64_MAX >> 10U) << 10U;
  wanted.progress = ShowProgress(host.terminal);
  const Report report = MakeReport(session.Document(), session.Store(), wanted);
  WriteFile(host.start / options.file, [&](std::ostream& out) { out << report.page; });
  SayAll(host, report.cuts);
  host.terminal.Say("wrote " + Printable(options.file) + ", " +
                    Kit::FormatSize(report.page.size()));
  return ExitCode::Done;
}

ExitCode RunExportGit(const Host& host, const ExportOptions& options) {
  if (options.output.empty() && isatty(STDOUT_FILENO) == 1) {
    throw Failure("the stream is for a file or for git fast-import, not for a terminal",
                  ExitCode::Usage);
  }
  Session session(host, Access::Read);
  GitExportReport report;
  const auto write = [&](std::ostream& out) { report = ExportGit(session.Document(), out); };
  if (options.output.empty()) {
    write(std::cout);
  } else {
    WriteFile(host.start / options.output, write);
  }
  SayAll(host, report.notes);
  host.terminal.Say("exported " + Plural(report.versions, "commit") + ", " +
                    Plural(report.branches, "branch") + ", " + Plural(report.tags, "tag"));
  return ExitCode::Done;
}

ExitCode RunImportGit(const Host& host, const ImportOptions& options) {
  Session session(host, Access::Change);
  const FileTree before = session.HeadFiles();
  std::ifstream file;
  if (!options.file.empty()) {
    file.open(host.start / options.file, std::ios::binary);
    if (!file || fs::is_directory(host.start / options.file))
      throw Failure("cannot read \"" + Printable(options.file) + "\": it is no file with a stream",
                    ExitCode::Usage);
  }
  Kit::OpenedRepository opened = session.OpenRepository();
  const GitImportReport report = ImportGit(options.file.empty() ? std::cin : file, opened);
  session.Reopen();
  const std::size_t files = SaveWithFolder(session, before);
  SayAll(host, report.notes);
  if (report.mergedTags > 0) {
    host.terminal.Say(Plural(report.mergedTags, "tag") +
                      " \"merged/...\" for commits that only a merge reaches");
  }
  host.terminal.Say("imported " + Plural(report.commits, "commit") + ", " +
                    Plural(report.branches, "branch") + ", " + Plural(report.tags, "tag") + "; " +
                    Plural(files, "file") + " of the folder updated");
  return ExitCode::Done;
}

}  // namespace

void AddExchangeCommands(Commands& commands) {
  commands.Add<ReportCommandOptions>(
      "report", "Write a page about the history that any browser shows without a network",
      RunReport, [](Command& command, ReportCommandOptions& options) {
        command.Argument("file", options.file, "The page to write, such as report.html")
            .Required("file")
            .Option("--title", options.title, "The title, instead of the name of the folder")
            .Count("--limit", options.limitKib,
                   "The most KiB that the page may have, 16384 by default; what doesn't fit is "
                   "left out");
      });
  commands.Add<ExportOptions>("export-git",
                              "Write all branches and tags as a stream for git fast-import",
                              RunExportGit, [](Command& command, ExportOptions& options) {
                                command.Option("-o,--output", options.output,
                                               "The file to write, instead of the standard output");
                              });
  commands.Add<ImportOptions>(
      "import-git", "Bring in the branches and tags of a stream that git fast-export wrote",
      RunImportGit, [](Command& command, ImportOptions& options) {
        command.Argument("file", options.file, "The stream, instead of the standard input");
      });
}

}  // namespace Tal
