#pragma once

#include <kit/export.h>
#include <kit/text/error.h>
#include <talvcs/persistence/packed_object.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// How much of a branch can be read.
enum class BranchState {
  Unchecked,  ///< It was not checked.
  Whole,      ///< Every commit, folder and file of its history is as it was written.
  Partial,    ///< The head commit can be read; something that it reaches can't.
  Lost,       ///< The head commit can't be read.
};

/// Returns the state's name, such as "Partial".
TALVCS_KIT_API const char* ToString(BranchState state) noexcept;

/// What to do with branches that aren't whole.
enum class DamagePolicy {
  Stop,       ///< Fail with the first damage as the error.
  OpenWhole,  ///< Take the branches that are whole, and leave the others out.
  Salvage,    ///< Take also what is left of partial branches; lost ones are left out.
};

/// An object that can't be read.
struct Damage {
  Id id;                               ///< The id of the object.
  ObjectType type = ObjectType::Blob;  ///< Its type, as the link to it says.
  /// `NotFound` for a missing object, `Damaged` for wrong bytes, `Unavailable` if the store could
  /// not read it.
  ErrorCode code = ErrorCode::Damaged;
  /// Why, as one sentence without a full stop.
  std::string reason;
  /// The first branch that needs the object, and the oldest commit of it that does.
  std::string branch;
  Id commit;
  /// The path in that commit. Empty for a commit and for a root tree.
  std::string path;
  /// How many commits need the object, of all branches. What is below an unreadable object can't be
  /// counted.
  std::uint64_t commits = 0;
};

/// Returns one line for people: branch, path, commit and reason.
TALVCS_KIT_API std::string Describe(const Damage& damage);

/// What is known of a branch.
struct BranchReport {
  std::string name;                            ///< The name of the branch.
  Id head;                                     ///< Its head in the store; empty for none.
  BranchState state = BranchState::Unchecked;  ///< How much of it can be read.
  /// Commits that can be read, from the head on without a gap.
  std::uint64_t commits = 0;
  /// Those of them whose folders and files can be read without exception.
  std::uint64_t wholeCommits = 0;

  friend bool operator==(const BranchReport&, const BranchReport&) = default;
};

/// What a check of a store found, branch by branch.
struct HistoryReport {
  /// In the order of the names.
  std::vector<BranchReport> branches;
  /// In the order of discovery, and not more than `kMostDamages` unless the caller asks for more.
  std::vector<Damage> damages;
  /// How many objects can't be read, listed or not.
  std::uint64_t damageCount = 0;

  /// The most damages that a report lists by itself.
  static constexpr std::uint32_t kMostDamages = 1000;

  /// True if nothing was found to be wrong. Says nothing of unchecked branches.
  bool IsWhole() const noexcept { return damageCount == 0; }
};

/// Returns the branch of that name, or null.
TALVCS_KIT_API const BranchReport* FindBranch(const HistoryReport& report, std::string_view name);

/// Returns the error for the first damage of a report that has one.
TALVCS_KIT_API Error ErrorOfDamage(const HistoryReport& report);

}  // namespace TalVcs::Kit
