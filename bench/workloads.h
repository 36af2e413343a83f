#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The inputs of the benchmarks: the same bytes on every machine and for every program that is
/// measured beside the library. Needs nothing of the library.
namespace TalVcs::Bench {

/// The generator "splitmix64".
class Random {
 public:
  explicit Random(std::uint64_t seed) : m_state(seed) {}

  std::uint64_t Next();
  std::uint64_t Below(std::uint64_t limit) { return Next() % limit; }

  /// Fills the range with outputs, little endian, the last one cut.
  void Fill(char* bytes, std::size_t size);

 private:
  std::uint64_t m_state;
};

/// Keeps apart the contents that different steps of a workload write.
enum class Family : std::uint64_t {
  Base = 1,
  History = 2,
  Diff = 3,
  Ours = 4,
  Theirs = 5,
  Garbage = 6,
  Hash = 7,
};

/// File number `index` gets the content of that family and version.
struct Change {
  std::uint32_t index;
  Family family;
  std::uint64_t version;
};

/// For each commit the files that it changes.
using HistoryPlan = std::vector<std::vector<Change>>;

/// Files that two trees differ in; beside each of `added` there is a new file, its path and an "x".
struct DiffPlan {
  std::vector<std::uint32_t> modified;
  std::vector<std::uint32_t> deleted;
  std::vector<std::uint32_t> added;
};

/// Files that are changed by one side alone, and by both in different ways.
struct MergePlan {
  std::vector<std::uint32_t> ours;
  std::vector<std::uint32_t> theirs;
  std::vector<std::uint32_t> both;
};

/// Returns 512 to 1536 bytes that don't compress.
std::string Content(Family family, std::uint64_t index, std::uint64_t version);
std::string Content(const Change& change);
/// Return the contents of the first `count` files of the base, and those that each commit writes.
std::vector<std::string> Contents(std::uint32_t count);
std::vector<std::vector<std::string>> Contents(const HistoryPlan& plan);

/// Returns `size` bytes for hashing.
std::string HashContent(std::size_t size);

/// Return the names of file `index` and of its directories: 100 files a directory, two levels.
std::string LeafName(std::uint32_t index);
std::string MiddleName(std::uint32_t directory);
std::string TopName(std::uint32_t directory);
std::string Path(std::uint32_t index);
inline constexpr std::uint32_t kFilesPerLeaf = 100;
inline constexpr std::uint32_t kFilesPerTop = 1000;

/// Return the numbers below `count`, in order and shuffled.
std::vector<std::uint32_t> InOrder(std::uint32_t count);
std::vector<std::uint32_t> Shuffled(std::uint32_t count);

/// Each commit changes five different files. The dropped branch is what a purge removes.
HistoryPlan PlanHistory(std::uint32_t files, std::uint32_t commits);
HistoryPlan PlanDroppedBranch(std::uint32_t files, std::uint32_t commits);
inline constexpr std::uint32_t kChangesPerCommit = 5;

/// 80 files modified, 10 deleted, 10 added.
DiffPlan PlanDiff(std::uint32_t files);
/// 90 files changed by ours, 90 by theirs, 10 by both.
MergePlan PlanMerge(std::uint32_t files);

inline constexpr std::string_view kAuthorName = "A U Thor";
inline constexpr std::string_view kAuthorEmail = "author@example.com";
inline constexpr std::int64_t kFirstTime = 1700000000;
/// The first line of a commit's description.
std::string Message(std::uint32_t number);

/// FNV-1a over 64 bits, which shows whether two programs run on the same inputs.
class Fingerprint {
 public:
  void Add(const void* bytes, std::size_t size);
  /// Adds the text and a zero byte.
  void Add(const std::string& text) { Add(text.c_str(), text.size() + 1); }
  std::uint64_t Value() const { return m_value; }

 private:
  std::uint64_t m_value = 0xCBF29CE484222325u;
};

/// The fingerprint of the differing paths, in order, each with what happened to it.
std::uint64_t FingerprintOf(const DiffPlan& plan);

}  // namespace TalVcs::Bench
