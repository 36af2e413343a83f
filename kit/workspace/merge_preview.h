#pragma once

#include <kit/diff/tree_changes.h>
#include <kit/export.h>
#include <kit/merge/content_merger.h>
#include <kit/text/bytes.h>
#include <kit/workspace/version.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Why a merge can't decide about a path.
enum class ConflictKind {
  BothChanged,        ///< Both sides changed the file, to different bytes.
  BothAdded,          ///< Both sides added the file, with different bytes.
  ChangedAndRemoved,  ///< One side changed the file or what is in the folder, the other removed it.
  FileAgainstFolder,  ///< One side has a file at the path, the other a folder.
};

/// Returns the kind's name, such as "BothChanged".
TALVCS_KIT_API const char* ToString(ConflictKind kind) noexcept;

/// What one side of a conflict has at the path.
struct ConflictSide {
  /// The bytes of the file; none if there is no file.
  std::optional<Bytes> content;
  /// True if there is a folder.
  bool isFolder = false;

  friend bool operator==(const ConflictSide&, const ConflictSide&) = default;
};

/// A path about which a merge can't decide.
struct Conflict {
  std::string path;                               ///< The path of the file or folder.
  ConflictKind kind = ConflictKind::BothChanged;  ///< Why.
  ConflictSide base;                              ///< What both sides began with.
  ConflictSide ours;                              ///< What the current branch has.
  ConflictSide theirs;                            ///< What comes in.
  /// What the host's merger made of the file, and the places that it couldn't merge. None without a
  /// merger for the path.
  std::optional<Bytes> merged = {};
  std::vector<ContentConflict> places = {};

  friend bool operator==(const Conflict&, const Conflict&) = default;
};

/// The answer to a conflict: a side with everything that it has at the path, or new bytes.
class TALVCS_KIT_API Decision {
 public:
  /// Whose entry to take.
  enum class Side {
    Ours,     ///< What the current branch has.
    Theirs,   ///< What comes in.
    Base,     ///< What both sides began with.
    Content,  ///< The bytes of the decision.
  };

  /// Take a side. Where it has nothing at the path, the path is removed.
  static Decision Ours() { return Decision(Side::Ours, {}); }
  static Decision Theirs() { return Decision(Side::Theirs, {}); }
  static Decision Base() { return Decision(Side::Base, {}); }
  /// Takes a file with these bytes.
  static Decision Content(Bytes content) { return Decision(Side::Content, std::move(content)); }
  static Decision Content(std::string_view text) { return Content(Bytes(text)); }

  Side GetSide() const noexcept { return m_side; }                ///< What is taken.
  const Bytes& GetContent() const noexcept { return m_content; }  ///< Of `Side::Content`.

 private:
  Decision(Side side, Bytes content) : m_side(side), m_content(std::move(content)) {}

  Side m_side;
  Bytes m_content;
};

/// Decisions by the path of the conflict.
using Decisions = std::map<std::string, Decision>;

/// What a merge does.
enum class MergeAction {
  Branch,      ///< Brings in what another branch changed.
  CherryPick,  ///< Brings in what one version changed.
  Revert,      ///< Takes back what one version changed.
  Undo,        ///< Takes back one's own latest version.
  Redo,        ///< Takes back an undo.
  Reload,      ///< Brings in what somebody else saved, under the pending changes.
};

/// What a merge would do, and what it needs to know first. A value; nothing has changed.
///
/// Three states meet: *ours* is the current branch, *theirs* is what comes in, and *base* is what
/// both began with.
struct MergePreview {
  MergeAction action = MergeAction::Branch;  ///< What is merged.
  std::string branch;                        ///< The other branch; empty for other actions.
  Version version;                           ///< The version that is merged, or taken back.
  Id head;                                   ///< The head that the preview was made for.
  /// Changes of the current files that need no decision.
  std::vector<TreeChange> changes;
  /// All that needs a decision, sorted by path.
  std::vector<Conflict> conflicts;
  /// True if everything was merged before: there is nothing to do.
  bool isUpToDate = false;
  /// True if the current branch only has to move to the other head.
  bool isFastForward = false;
};

}  // namespace TalVcs::Kit
