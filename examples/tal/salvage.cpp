#include "salvage.h"

#include "failure.h"
#include "file_tree.h"
#include "folder.h"
#include "interrupt.h"
#include "text.h"

#include <kit/open/open.h>
#include <kit/open/try.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <span>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

using CommitPtr = TalVcs::cow_ptr<TalVcs::Commit>;

constexpr std::size_t kMostNameBytes = 200;

/// Returns the name of a folder for a branch: its name without what has a meaning in a path, and no
/// longer than a file system takes.
std::string FolderName(const std::string& branch) {
  std::string name;
  for (const char c : branch) name += c == '/' || c == '\\' ? '_' : c;
  if (name.size() > kMostNameBytes) {
    std::size_t end = kMostNameBytes;
    while (end > 0 && (name[end] & 0xC0) == 0x80) --end;
    name.resize(end);
  }
  return name.starts_with('.') || name.empty() ? "_" + name : name;
}

/// Returns false if a folder can't hold a file of that path. Makes the folders of the path.
bool MakePlace(const fs::path& folder, const std::string& path) {
  try {
    CheckPath(path);
  } catch (const Failure&) {
    return false;
  }
  const fs::path target = folder / path;
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (error == std::errc::filename_too_long || error == std::errc::not_a_directory ||
      error == std::errc::file_exists)
    return false;
  // Any other reason is one for which no file can be written.
  if (error)
    throw Failure("cannot write \"" + Printable(target.string()) + "\": " + error.message());
  const fs::file_type type = fs::symlink_status(target, error).type();
  return error != std::errc::filename_too_long && type != fs::file_type::directory;
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
    const auto bytes = Kit::Try([&] { return Kit::BytesFromBlob(*tree.GetLocalBlob(name)); });
    if (!bytes) {
      m_missing.insert(path);
      return;
    }
    if (!MakePlace(m_folder, path)) {
      m_missing.erase(path);
      m_report.lost.push_back(m_branch + ": " + path + " (no folder can hold this path)");
      return;
    }
    const fs::path target = m_folder / path;
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

/// Returns the id after "parent " in the text of a packed commit; empty if it names none.
TalVcs::Id ParentOf(std::string_view packed) {
  constexpr std::string_view kKey = "parent ";
  std::string_view text = packed.substr(std::min(packed.find('\0'), packed.size() - 1) + 1);
  text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  if (!text.starts_with(kKey)) return {};
  return TalVcs::Id(ToWide(std::string(text.substr(kKey.size(), 64))));
}

/// Finds the commits of a store by reading every object, and which of them are no commit's parent.
class TipSearch {
 public:
  explicit TipSearch(Kit::IObjectStore& store) : m_store(store) {}

  std::vector<TalVcs::Id> Run() {
    std::vector<TalVcs::Id> ids;
    static_cast<void>(m_store.List([&](std::span<const TalVcs::Id> listed) {
      ids.insert(ids.end(), listed.begin(), listed.end());
      return !IsInterrupted();
    }));
    for (std::span<const TalVcs::Id> rest = ids; !rest.empty();) {
      StopIfInterrupted();
      const auto batch = rest.first(std::min(rest.size(), kBatch));
      rest = rest.subspan(batch.size());
      // What can't be read is no tip that could be salvaged.
      static_cast<void>(
          m_store.Read(batch, [this](const TalVcs::Id& id, Kit::Result<TalVcs::Buffer> packed) {
            if (packed) Add(id, *packed);
          }));
    }
    std::vector<TalVcs::Id> tips;
    for (const std::string& commit : m_commits) {
      if (!m_parents.contains(commit)) tips.emplace_back(ToWide(commit));
    }
    return tips;
  }

 private:
  static constexpr std::size_t kBatch = 64;

  void Add(const TalVcs::Id& id, const TalVcs::Buffer& packed) {
    constexpr std::string_view kCommit = "commit ";
    constexpr std::size_t kMostBytes = 1 << 20;  // a larger object is no commit of a person
    if (packed.GetSize() > kMostBytes) return;
    const std::string text = Kit::BytesFromBuffer(packed);
    if (!text.starts_with(kCommit)) return;
    m_commits.insert(ToUtf8(id));
    m_parents.insert(ToUtf8(ParentOf(text)));
  }

  Kit::IObjectStore& m_store;
  std::set<std::string> m_commits;
  std::set<std::string> m_parents;
};

/// Returns the time, the author and the first line of the description.
std::string DescribeTip(const TalVcs::Commit& commit) {
  Kit::Version version;
  version.time = std::chrono::sys_seconds(std::chrono::seconds(commit.GetCommitTime().ToTimeT()));
  const std::string description = ToUtf8(commit.GetDesciption());
  return FormatTime(version) + " " + ToUtf8(commit.GetAuthorName()) + ": " +
         description.substr(0, description.find('\n'));
}

/// Salvages what the branches and the tips of one store have.
class StoreSalvage {
 public:
  StoreSalvage(const std::shared_ptr<Kit::IObjectStore>& store, fs::path target)
      : m_store(store), m_target(std::move(target)), m_opened(Kit::Open(store).value()) {}

  void TakeBranches() {
    const auto heads = m_store->Heads();
    if (!heads) {
      m_report.lost.push_back("the list of branches");
      return;
    }
    for (const Kit::Head& head : *heads) {
      m_heads.insert(ToUtf8(head.id));
      const CommitPtr commit = Read(head.id);
      if (!commit) {
        m_report.lost.push_back(head.name + ": its head");
        continue;
      }
      ++m_report.branches;
      BranchSalvage(head.name, m_target / NewName(head.name), m_report).Run(commit);
    }
  }

  void TakeTips() {
    std::vector<CommitPtr> commits;
    for (const TalVcs::Id& id : TipSearch(*m_store).Run()) {
      if (m_heads.contains(ToUtf8(id))) continue;
      if (const CommitPtr commit = Read(id)) commits.push_back(commit);
    }
    std::stable_sort(commits.begin(), commits.end(), [](const CommitPtr& a, const CommitPtr& b) {
      return a->GetCommitTime() > b->GetCommitTime();
    });
    for (const CommitPtr& commit : commits) {
      const std::string name = NewName("tip-" + ShortId(ToUtf8(commit->GetId())));
      m_report.tips.push_back(name + " " + DescribeTip(*commit));
      BranchSalvage(name, m_target / name, m_report).Run(commit);
    }
  }

  bool HasBranches() const noexcept { return m_report.branches > 0; }
  SalvageReport TakeReport() { return std::move(m_report); }

 private:
  /// Returns a name for the folder of a branch that no other one has.
  std::string NewName(const std::string& branch) {
    const std::string name = FolderName(branch);
    std::string unique = name;
    for (int number = 2; !m_names.insert(unique).second; ++number)
      unique = name + "-" + std::to_string(number);
    return unique;
  }

  CommitPtr Read(const TalVcs::Id& id) {
    const auto commit = Kit::Try([&] { return m_opened->GetCommitFromStorage(id); });
    const bool can_be_read =
        commit && *commit && Kit::Try([&] { return (*commit)->GetDesciption(); });
    return can_be_read ? *commit : CommitPtr();
  }

  std::shared_ptr<Kit::IObjectStore> m_store;
  fs::path m_target;
  Kit::OpenedRepository m_opened;
  std::set<std::string> m_heads;
  std::set<std::string> m_names;  // of the folders
  SalvageReport m_report;
};

}  // namespace

SalvageReport Salvage(const std::shared_ptr<Kit::IObjectStore>& store, const fs::path& target,
                      SalvageFrom from) {
  StoreSalvage salvage(store, target);
  salvage.TakeBranches();
  if (from == SalvageFrom::Objects || !salvage.HasBranches()) salvage.TakeTips();
  return salvage.TakeReport();
}

}  // namespace Tal
