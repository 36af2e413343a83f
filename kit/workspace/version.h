#pragma once

#include <kit/export.h>
#include <talvcs/objects/id.h>

#include <chrono>
#include <iosfwd>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Writes the text of the id.
TALVCS_KIT_API std::ostream& Print(std::ostream& out, const Id& id);

/// One state of a document, as a host sees it. A value, which keeps nothing alive; all texts are
/// UTF-8.
struct Version {
  Id id;                ///< The id of the version.
  Id parent;            ///< The version before it; empty for the first one.
  std::string summary;  ///< The first line of the message.
  std::string message;  ///< The whole message, without the line that a workspace adds for itself.
  std::string author;   ///< Who made it.
  std::string email;    ///< The author's e-mail address.
  std::chrono::sys_seconds time = {};  ///< When it was made.
  std::chrono::minutes offset = {};    ///< The author's offset from UTC, positive in the east.
  /// The branches and the tags that were at this version when it was looked up, sorted.
  std::vector<std::string> branches;
  std::vector<std::string> tags;
  /// True if a program made it on its own account. Undo passes over it.
  bool isMachineMade = false;
  bool isCheckpoint = false;  ///< True if `Checkpoint` made it.
  std::string gesture;        ///< The gesture of a checkpoint; empty for none.
  Id undoes;                  ///< The version that this one undoes; empty if it undoes none.
  Id redoes;                  ///< The undoing version that this one undoes again; empty if none.
  std::vector<Id> merges;     ///< The heads of other branches that this version has merged.

  friend bool operator==(const Version&, const Version&) = default;
};

}  // namespace TalVcs::Kit

namespace TalVcs {

/// Writes the text of the id.
inline std::ostream& operator<<(std::ostream& out, const Id& id) { return Kit::Print(out, id); }

/// Orders ids by their texts, for sets and maps.
inline bool operator<(const Id& a, const Id& b) noexcept { return a.View() < b.View(); }

}  // namespace TalVcs
