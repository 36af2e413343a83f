#include "merge_tool.h"

#include "failure.h"
#include "interrupt.h"
#include "store_files.h"

#include <kit/merge/text_merge.h>
#include <kit/text/escape.h>

#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace fs = std::filesystem;

namespace Tal {
namespace {

using TalVcs::Kit::Bytes;
using TalVcs::Kit::Conflict;

/// A folder inside the store's folder for the sides of one conflict, removed at the end.
class MergeFiles {
 public:
  MergeFiles(const Folder& folder, const Conflict& conflict)
      : m_top(folder), m_folder(folder.StorePath() / "tal-merge") {
    std::error_code error;
    fs::remove_all(m_folder, error);
    fs::create_directory(m_folder, error);
    // Editors and tools recognise the kind of text by the ending of the name.
    m_ending = fs::path(conflict.path).extension().string();
    const auto text = [](const TalVcs::Kit::ConflictSide& side) {
      return side.content ? std::string(side.content->text()) : std::string();
    };
    WriteSmallFile(PathOf("base"), text(conflict.base));
    WriteSmallFile(PathOf("ours"), text(conflict.ours));
    WriteSmallFile(PathOf("theirs"), text(conflict.theirs));
    const bool is_marked = conflict.merged.has_value();
    WriteSmallFile(PathOf("merged"),
                   is_marked ? std::string(conflict.merged->text()) : text(conflict.ours));
  }
  MergeFiles(const MergeFiles&) = delete;
  MergeFiles& operator=(const MergeFiles&) = delete;
  ~MergeFiles() {
    std::error_code error;
    fs::remove_all(m_folder, error);
  }

  fs::path PathOf(const char* name) const { return m_folder / (name + m_ending); }

  /// Returns what the command made of the merged file. Throws `Failure` if it removed the file or
  /// put a link there.
  TalVcs::Buffer ReadMerged() const {
    const fs::path path = PathOf("merged");
    const FileContent merged = m_top.Read(path.lexically_relative(m_top.Top()).string());
    if (merged.stat.kind == FileKind::Link)
      throw Failure("the merge tool has put a link in the place of the merged file");
    return merged.bytes;
  }

 private:
  const Folder& m_top;
  fs::path m_folder;
  std::string m_ending;
};

std::string Quoted(const fs::path& path) {
  return "'" + TalVcs::Kit::ReplaceCharacters(path.string(), {{'\'', "'\\''"}}) + "'";
}

/// Runs a command of the shell and returns true if it ends with 0. Throws `Failure` if it was
/// interrupted: meanwhile the interrupt goes to that program alone.
bool Run(const std::string& command) {
  constexpr int kInterrupted = static_cast<int>(ExitCode::Interrupted);
  std::cout.flush();
  const int status = std::system(command.c_str());
  const bool is_interrupted = (WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) ||
                              (WIFEXITED(status) && WEXITSTATUS(status) == kInterrupted);
  if (is_interrupted) ThrowInterrupted();
  StopIfInterrupted();
  return status == 0;
}

bool HasBothFiles(const Conflict& conflict) {
  return conflict.ours.content && conflict.theirs.content;
}

}  // namespace

std::optional<Bytes> RunMergeTool(const Folder& folder, const std::string& command,
                                  const Conflict& conflict) {
  if (!HasBothFiles(conflict)) return std::nullopt;
  const MergeFiles files(folder, conflict);
  std::string line = command;
  for (const char* name : {"base", "ours", "theirs", "merged"})
    line += " " + Quoted(files.PathOf(name));
  if (!Run(line)) return std::nullopt;
  return Bytes(files.ReadMerged());
}

std::optional<Bytes> EditConflict(const Folder& folder, const Conflict& conflict) {
  if (!HasBothFiles(conflict)) return std::nullopt;
  const char* editor = std::getenv("VISUAL");
  if (editor == nullptr) editor = std::getenv("EDITOR");
  const MergeFiles files(folder, conflict);
  if (!Run(std::string(editor == nullptr ? "vi" : editor) + " " + Quoted(files.PathOf("merged"))))
    return std::nullopt;
  const Bytes text(files.ReadMerged());
  return TalVcs::Kit::HasConflictMarkers(text.text()) ? std::nullopt : std::optional(text);
}

}  // namespace Tal
