#include "salvage.h"

#include "failure.h"
#include "interrupt.h"

#include <kit/open/open.h>
#include <kit/open/try.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace fs = std::filesystem;

namespace Tal {
namespace {

using CommitPtr = TalVcs::cow_ptr<TalVcs::Commit>;

/// Returns the name of a folder for a branch: its name without what has a meaning in a path.
std::string FolderName(const std::string& branch) {
  std::string name;
  for (const char c : branch) name += c == '/' || c == '\\' ? '_' : c;
  return name.starts_with('.') || name.empty() ? "_" + name : name;
}

/// Takes the files of one history, from its newest commit on.
class BranchSalvage {
 public:
  BranchSalvage(std::string branch, fs::path folder, SalvageReport& report)
      : m_branch(std::move(branch)), m_folder(std::move(folder)), m_report(report) {}

  void Run(const CommitPtr& head) {
    CommitPtr commit = head;
    bool is_newest = true;
    while (commit) {
      StopIfInterrupted();
      TakeCommit(*commit, is_newest);
      is_newest = false;
      if (m_missing.empty()) break;
      const auto parent = Kit::Try([&] { return commit->GetParent(); });
      commit = parent ? *parent : nullptr;
    }
    for (const std::string& path : m_missing) m_report.lost.push_back(m_branch + ": " + path);
  }

 private:
  void TakeCommit(const TalVcs::Commit& commit, bool isNewest) {
    const auto root = Kit::Try(
        [&]() -> TreePtr { return commit.GetTree() ? commit.GetTree()->GetRoot() : nullptr; });
    if (!root || !*root) {
      if (isNewest && !root) m_missing.insert("");
      return;
    }
    std::vector<std::pair<std::string, TreePtr>> pending{{"", *root}};
    while (!pending.empty()) {
      const auto [path, tree] = std::move(pending.back());
      pending.pop_back();
      TakeFolder(path, *tree, isNewest, pending);
    }
  }

  /// Takes all files of the newest commit, and what is missing of older ones.
  void TakeFolder(const std::string& path, const TalVcs::Tree& tree, bool isNewest,
                  std::vector<std::pair<std::string, TreePtr>>& pending) {
    const std::string prefix = path.empty() ? "" : path + "/";
    const auto names =
        Kit::Try([&] { return std::pair(tree.GetLocalBlobPaths(), tree.GetLocalSubtreePaths()); });
    if (!names) {
      if (isNewest) m_missing.insert(path);
      return;
    }
    const bool was_missing = m_missing.erase(path) > 0;  // the folder was lost in a newer commit
    for (const WideString& name : names->first) {
      const std::string file = prefix + ToUtf8(name);
      if (!isNewest && !was_missing && !m_missing.contains(file)) continue;
      if (file != FileKinds::kKindsName) TakeFile(file, tree, name, isNewest);
    }
    for (const WideString& name : names->second) {
      const std::string folder = prefix + ToUtf8(name);
      const auto inner = Kit::Try([&] { return tree.GetLocalTree(name); });
      if (was_missing) m_missing.insert(folder);
      if (inner && *inner) pending.emplace_back(folder, *inner);
    }
  }

  void TakeFile(const std::string& path, const TalVcs::Tree& tree, const WideString& name,
                bool isNewest) {
    CheckPath(path);
    const auto bytes = Kit::Try([&] { return Kit::BytesFromBlob(*tree.GetLocalBlob(name)); });
    if (!bytes) {
      m_missing.insert(path);
      return;
    }
    const fs::path target = m_folder / path;
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    std::ofstream file(target, std::ios::binary);
    file.write(bytes->data(), static_cast<std::streamsize>(bytes->size()));
    file.close();
    if (!file) throw Failure("cannot write \"" + Printable(target.string()) + "\"");
    m_missing.erase(path);
    ++m_report.files;
    if (!isNewest) m_report.older.push_back(m_branch + ": " + path);
  }

  std::string m_branch;
  fs::path m_folder;
  SalvageReport& m_report;
  std::set<std::string> m_missing;
};

}  // namespace

SalvageReport Salvage(Session& session, const std::string& target) {
  std::error_code error;
  if (!fs::create_directory(target, error))
    throw Failure("cannot create the folder \"" + Printable(target) +
                  "\": " + (error ? error.message() : "there is something of that name"));
  Kit::OpenedRepository opened =
      Kit::Open(std::shared_ptr<Kit::IObjectStore>(&session.Store(), [](auto*) {})).value();
  SalvageReport report;
  for (const Kit::Head& head : session.Store().Heads().value()) {
    const auto commit = Kit::Try([&] { return opened->GetHead(ToWide(head.name)); });
    const bool can_be_read =
        commit && *commit && Kit::Try([&] { return (*commit)->GetDesciption(); });
    if (!can_be_read) {
      report.lost.push_back(head.name + ": its head");
      continue;
    }
    ++report.branches;
    BranchSalvage(head.name, fs::path(target) / FolderName(head.name), report).Run(*commit);
  }
  return report;
}

}  // namespace Tal
