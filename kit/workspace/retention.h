#pragma once

#include <kit/export.h>
#include <kit/open/statistics.h>
#include <kit/text/progress.h>
#include <kit/workspace/version.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace TalVcs::Kit {

/// A rule about which versions to keep. A value.
///
/// Every rule also keeps the head of each branch and each tag. Every rule but `ForgetThrough` keeps
/// for each two branches the versions that a merge of them begins with.
class TALVCS_KIT_API Retention {
 public:
  /// Keeps the newest versions of each branch.
  static Retention KeepNewest(std::uint64_t count);
  /// Keeps the versions that are not older than a time.
  static Retention KeepSince(std::chrono::sys_seconds time);
  /// Keeps the newest versions whose objects together have no more bytes, in packed form. What
  /// every rule keeps comes first, even if it is more.
  static Retention KeepUnder(std::uint64_t sizeBytes);
  /// Keeps all versions but checkpoints. Of these, it keeps on each branch the newest ones: as many
  /// of each hour of the day before `now`, and as many of each day before that. Hours and days are
  /// UTC.
  static Retention ThinAutosaves(std::uint64_t perHour, std::uint64_t perDay,
                                 std::chrono::sys_seconds now);
  /// Keeps the heads and the versions from which more than one other follows.
  static Retention TipsAndForks();
  /// Forgets a version and all before it, and keeps the others. What merges begin with goes as
  /// well: a merge of two branches without a common version then takes every file as added.
  /// `Forget` fails with `NotFound` if no branch or tag reaches the version.
  static Retention ForgetThrough(const Id& version);

  /// Which rule it is.
  enum class Kind { Newest, Since, Under, Thin, TipsAndForks, Through };

  Kind GetKind() const noexcept { return m_kind; }               ///< Returns the rule.
  std::uint64_t GetCount() const noexcept { return m_count; }    ///< Versions, bytes, or per hour.
  std::uint64_t GetPerDay() const noexcept { return m_perDay; }  ///< Of `Kind::Thin`.
  std::chrono::sys_seconds GetTime() const noexcept { return m_time; }  ///< Of `Kind::Since`.
  const Id& GetVersion() const noexcept { return m_version; }           ///< Of `Kind::Through`.

 private:
  explicit Retention(Kind kind) noexcept : m_kind(kind) {}

  Kind m_kind;
  std::uint64_t m_count = 0;  // versions, bytes, or checkpoints in an hour
  std::uint64_t m_perDay = 0;
  std::chrono::sys_seconds m_time = {};
  Id m_version;
};

/// Options of `Workspace::Forget`.
struct ForgetOptions {
  /// Phases: "history" and "bases"; "contents" in a preview and under `KeepUnder`; "write" and
  /// those of `Save`, all before anything has changed. Then the phases of `CleanUp`, which can't be
  /// cancelled.
  Progress progress = {};
  /// The most versions that the report lists, each of which takes some 500 bytes. All are counted.
  std::uint64_t mostListed = UINT64_MAX;
};

/// What a rule forgets.
struct RetentionReport {
  /// The versions that go, newest first, up to `ForgetOptions::mostListed`.
  std::vector<Version> forgotten;
  /// The number of the versions that go, and of those that stay.
  std::uint64_t forgottenVersions = 0;
  std::uint64_t keptVersions = 0;
  /// Objects that leave the store, with those that nothing reached before.
  ObjectTotals freed;
};

}  // namespace TalVcs::Kit
