#pragma once

#include <kit/export.h>
#include <kit/workspace/workspace.h>

#include <set>
#include <string>

namespace TalVcs::Kit {

/// Shortens the ids of versions for people, as far as the short ids still differ from each other.
///
///     ShortIds ids(workspace);
///     for (const Version& version : log) ids.Add(version.id);
///     std::cout << ids.Of(log.front().id);
///
/// A short id differs from the ids of all heads of branches and tags, and from all ids that were
/// added. Other versions are not read, so the cost doesn't grow with the history. One of them may
/// have the same short id: `FindByPrefix` returns all versions that begin with it.
class TALVCS_KIT_API ShortIds {
 public:
  /// The fewest characters of a short id.
  static constexpr std::size_t kFewestCharacters = 7;

  /// No ids.
  ShortIds() = default;
  /// The heads of all branches and tags of a workspace.
  explicit ShortIds(const Workspace& workspace);

  /// Adds an id that is shown.
  void Add(const Id& id);

  /// Returns the first characters of an id: at least seven, and as many as make it differ from
  /// every other id. The id need not have been added.
  [[nodiscard]] std::string Of(const Id& id) const;

 private:
  std::set<std::string> m_ids;
};

}  // namespace TalVcs::Kit
