#pragma once

#include <kit/open/internal/record_reader.h>
#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// Finds the versions of one history that changed what is at a path.
///
/// Works on the stored forms of commits and folders and makes no objects of those that it passes.
/// Reads commits in windows of 1, 2, 4 and so on up to 1,024, and the folders of a window together.
///
/// Ends before a version that needs an object which can't be read or isn't sound. The caller then
/// goes on with the objects themselves, which fail as they always do.
class PathHistory {
 public:
  /// A version, and whether it differs from its parent at the path.
  struct Step {
    Id version;
    bool changesPath = false;
  };

  /// Begins at `head`, a commit. `path` consists of names with "/" between them and isn't empty.
  /// `store` and `reporter`, which each read of folders asks, must outlive this object.
  PathHistory(IObjectStore& store, Id head, std::string_view path, Reporter& reporter);

  /// Returns the next version, newest first. Returns nothing after the last one and before one that
  /// `GetObstacle` returns. Fails with `Cancelled`, by the reporter or by the store.
  Result<std::optional<Step>> Next();

  /// Returns the version that nothing can be said about, or the empty id.
  const Id& GetObstacle() const noexcept { return m_obstacle; }

 private:
  /// What a folder has under a name.
  struct Entry {
    enum class Kind { Unknown, Nothing, File, Folder };

    Kind kind = Kind::Unknown;
    Id id;  // of a file or folder
  };
  struct Version {
    Id id;
    Entry found;  // on the way down, the folder that was reached
  };
  /// A name of the path, and what folders have under it, by their ids.
  struct Level {
    std::string name;
    std::unordered_map<Id, Entry> entries;
  };

  Status ReadWindow();
  Status ReadFolders(Level& level, std::size_t first);
  static Entry FindEntry(const Buffer& packed, std::string_view name);

  IObjectStore& m_store;
  Reporter& m_reporter;
  CommitReader m_commits;
  std::vector<Level> m_levels;
  std::deque<Version> m_versions;  // read and not returned
  bool m_isCut = false;            // the parent of the last one can't be read
  Id m_head;
  Id m_obstacle;
};

}  // namespace TalVcs::Kit
