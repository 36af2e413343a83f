// The versions of a window go down the path together: at each name, the folders that weren't met
// before are read, and each version moves on to what its folder has there.
//
//   version 9   root a --docs--> folder c --guide.md--> file f
//   version 8   root b --docs--> folder c --guide.md--> file f     version 9 didn't change it
//
// Most versions leave most folders as they are, so that few are read below the root.

#include <kit/text.h>
#include <kit/text/bytes.h>
#include <kit/workspace/internal/path_history.h>
#include <kit/workspace/internal/read_folders.h>
#include <talvcs/format/id_text.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit {

namespace {

// How the record of a folder begins in the stored form of the folder that has it.
constexpr std::string_view kFolderStart = "40000 tree ";

// Folders of a level that are remembered from window to window, half a kilobyte each.
constexpr std::size_t kMostRemembered = 4096;

/// Returns true if a whole call was cancelled. Any other failure is left to the walk by objects.
bool IsCancelled(const Status& status) {
  return !status && status.error().code == ErrorCode::Cancelled;
}

}  // namespace

PathHistory::PathHistory(IObjectStore& store, Id head, std::string_view path, Reporter& reporter)
    : m_store(store), m_reporter(reporter), m_commits(store, head), m_head(std::move(head)) {
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('/'));
    m_levels.push_back({std::string(name), {}});
    path.remove_prefix(std::min(name.size() + 1, path.size()));
  }
}

Result<std::optional<PathHistory::Step>> PathHistory::Next() {
  if (!m_obstacle.View().IsEmpty()) return std::optional<Step>();
  while (m_versions.size() < 2 && !m_isCut && !m_commits.AtEnd()) {
    if (Status status = ReadWindow(); !status) return std::move(status).error();
  }
  if (m_versions.empty()) {
    if (m_isCut) m_obstacle = m_head;
    return std::optional<Step>();
  }
  const Version& version = m_versions.front();
  const bool has_parent = m_versions.size() > 1;
  const Entry before = has_parent ? m_versions[1].found : Entry{Entry::Kind::Nothing, Id()};
  const bool is_known =
      version.found.kind != Entry::Kind::Unknown && before.kind != Entry::Kind::Unknown;
  if (!is_known || (!has_parent && m_isCut)) {
    m_obstacle = version.id;
    return std::optional<Step>();
  }
  Step step{version.id, !(version.found.id == before.id)};
  m_versions.pop_front();
  return std::optional(std::move(step));
}

/// Reads commits, and what each has at the path. Fails with `Cancelled` alone.
Status PathHistory::ReadWindow() {
  const std::size_t first = m_versions.size();
  Result<std::vector<CommitRecord>> commits = m_commits.Next();
  m_isCut = !commits || commits->back().problem;
  if (!commits) {
    const Status status = commits.error();
    return IsCancelled(status) ? status : Status();
  }
  for (CommitRecord& commit : *commits) {
    if (commit.problem) break;
    const bool has_root = !commit.root.View().IsEmpty();
    const Entry::Kind kind = has_root ? Entry::Kind::Folder : Entry::Kind::Nothing;
    m_versions.push_back({std::move(commit.id), {kind, std::move(commit.root)}});
  }
  for (Level& level : m_levels) {
    if (Status status = ReadFolders(level, first); !status) return status;
    for (std::size_t i = first; i < m_versions.size(); ++i) {
      Entry& found = m_versions[i].found;
      if (found.kind == Entry::Kind::Folder) {
        found = level.entries[found.id];
      } else if (found.kind == Entry::Kind::File) {
        found = {Entry::Kind::Nothing, Id()};
      }
    }
  }
  return {};
}

/// Reads the folders that versions from the `first` on have reached. What can't be read stays
/// unknown. Fails with `Cancelled` alone.
Status PathHistory::ReadFolders(Level& level, std::size_t first) {
  if (level.entries.size() > kMostRemembered) level.entries.clear();
  std::vector<Id> ids;
  for (std::size_t i = first; i < m_versions.size(); ++i) {
    const Entry& folder = m_versions[i].found;
    const bool is_new =
        folder.kind == Entry::Kind::Folder && level.entries.try_emplace(folder.id).second;
    if (is_new) ids.push_back(folder.id);
  }
  const auto take = [&level](const Id& id, const Result<Buffer>& packed) {
    const auto entry = level.entries.find(id);
    if (entry == level.entries.end() || CheckRecord(id, ObjectType::Tree, packed)) return;
    entry->second = FindEntry(*packed, level.name);
  };
  for (std::size_t at = 0; at < ids.size(); at += kFoldersTogether) {
    const std::size_t count = std::min(kFoldersTogether, ids.size() - at);
    Status status = m_store.Read(std::span(ids).subspan(at, count), take);
    if (!status && !IsCancelled(status)) return {};
    if (status) status = m_reporter.Add(0);
    if (!status) return status;
  }
  return {};
}

/// Returns what a folder that is sound has under a name. No other record is decoded.
PathHistory::Entry PathHistory::FindEntry(const Buffer& packed, std::string_view name) {
  const Bytes bytes(packed);
  std::string_view rest = bytes.text();
  rest.remove_prefix(rest.find('\0') + 1);
  while (!rest.empty()) {
    const std::size_t end = rest.find('\0');
    const std::size_t start = rest.find(' ', rest.find(' ') + 1) + 1;
    if (rest.substr(start, end - start) == name) {
      const bool is_folder = rest.starts_with(kFolderStart);
      return {is_folder ? Entry::Kind::Folder : Entry::Kind::File,
              Id(ToWide(rest.substr(end + 1, kIdLength)))};
    }
    rest.remove_prefix(end + 1 + kIdLength);
  }
  return {Entry::Kind::Nothing, Id()};
}

}  // namespace TalVcs::Kit
