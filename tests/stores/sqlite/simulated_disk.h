#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// A file of a simulated disk: what programs see of it, and what is on the medium.
struct SimulatedFile {
  /// A change that isn't on the medium yet: bytes at a place, or a new size without bytes.
  struct Change {
    std::uint64_t position = 0;
    std::string bytes;
    bool isTruncation = false;
  };

  std::string seen;
  std::string kept;
  std::vector<Change> unsynced;
  /// Regions that connections share, which no loss of power outlives.
  std::map<int, std::vector<std::byte>> shared = {};
};

/// A disk in memory under all of SQLite's files, from its construction to its destruction.
///
/// Any call can be made to fail, and power can be lost at any call. After a loss, what was synced
/// is there; of what wasn't, sectors of 512 bytes are there or not, independently. The name of a
/// file outlives a loss once the file was synced, and its removal once the folder was.
class SimulatedDisk {
 public:
  /// What happens to unsynced changes when power is lost.
  enum class Unsynced { Dropped, Kept, Random };

  SimulatedDisk();
  SimulatedDisk(const SimulatedDisk&) = delete;
  SimulatedDisk& operator=(const SimulatedDisk&) = delete;
  ~SimulatedDisk();

  /// Number of calls since the last `Count...` or loss of power.
  std::uint64_t Calls() const noexcept { return m_calls; }
  void CountFromHere() noexcept { m_calls = 0; }

  /// Lets the call after `calls` others fail. A failed write or sync has done a part or nothing.
  void FailOnce(std::uint64_t calls) noexcept { m_failAt = m_calls + calls; }
  /// Lets every call fail from there on, without effect, until `Restart`.
  void LosePower(std::uint64_t calls) noexcept { m_lossAt = m_calls + calls; }
  /// Whether the call that was to fail has been made.
  bool HasFailed() const noexcept { return m_hasFailed; }
  /// Whether files can be locked and have shared memory, which a write-ahead log needs.
  void SetLocks(bool hasLocks) noexcept { m_hasLocks = hasLocks; }
  void SetSharedMemory(bool hasSharedMemory) noexcept { m_hasSharedMemory = hasSharedMemory; }
  /// The disk is full: a write that would make any file longer fails.
  void SetFull(bool isFull) noexcept { m_isFull = isFull; }

  /// Power is back. Handles that are open stay without effect.
  void Restart(Unsynced unsynced, unsigned seed = 0);

  /// Returns the bytes of a file that exists.
  const std::string& Content(const std::string& name) const { return m_seen.at(name)->seen; }
  /// Makes a file of these bytes and removes all others.
  void StartWith(const std::string& name, const std::string& bytes);

 private:
  friend struct DiskCalls;
  using FilePointer = std::shared_ptr<SimulatedFile>;

  /// Counts a call. Returns false if it has to fail.
  bool Begin() noexcept;
  bool IsOff() const noexcept { return m_calls > m_lossAt; }
  void Sync(const std::string& name, SimulatedFile& file);

  std::string m_vfsName;
  sqlite3_vfs m_vfs{};
  std::map<std::string, FilePointer> m_seen;
  std::map<std::string, FilePointer> m_kept;
  std::uint64_t m_generation = 0;
  std::uint64_t m_calls = 0;
  std::uint64_t m_failAt = ~std::uint64_t{0};
  std::uint64_t m_lossAt = ~std::uint64_t{0};
  bool m_hasFailed = false;
  bool m_isFull = false;
  bool m_hasLocks = true;
  bool m_hasSharedMemory = true;
};

}  // namespace TalVcs::Testing
