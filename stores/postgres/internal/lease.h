#pragma once

#include <kit/store/object_key.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// What the counters of a repository were when a save first looked.
struct Counters {
  std::int64_t epoch = -1;     ///< Raised when objects are condemned.
  std::int64_t removals = -1;  ///< Raised when `RemoveUnmarked` has removed objects.
};

/// What a save relies on, from its first look to the move of its heads; see docs/sharing.md.
class Lease {
 public:
  /// The epoch that a statement compares with that of now; -1 if there is no save, or only one that
  /// has expired.
  std::int64_t Epoch() const noexcept { return m_isExpired ? -1 : m_counters.epoch; }
  const Counters& Begun() const noexcept { return m_counters; }
  bool IsHeld() const noexcept { return m_counters.epoch >= 0; }
  bool IsExpired() const noexcept { return m_isExpired; }
  /// True if there were too many objects to remember, so that the lease can't be renewed.
  bool IsIncomplete() const noexcept { return m_isIncomplete; }

  /// The number of the connection on which the save has begun or was last checked.
  std::uint64_t Connection() const noexcept { return m_connection; }
  void SetConnection(std::uint64_t connection) noexcept { m_connection = connection; }

  /// Begins a save at its first look, with the counters of that moment or before, and a new save
  /// after one that has expired.
  void Begin(const Counters& counters, std::uint64_t connection) {
    if (IsHeld() && !m_isExpired) return;
    End();
    m_counters = counters;
    m_connection = connection;
  }
  void Expire() noexcept { m_isExpired = true; }
  void End() { *this = Lease(); }

  void AddSkipped(const ObjectKey& key) { Add(m_skipped, key); }
  void AddWritten(std::span<const ObjectKey> keys) {
    for (const ObjectKey& key : keys) Add(m_written, key);
  }
  const std::vector<ObjectKey>& Skipped() const noexcept { return m_skipped; }
  const std::vector<ObjectKey>& Written() const noexcept { return m_written; }

 private:
  static constexpr std::size_t kMostKeys = std::size_t{1} << 22;

  void Add(std::vector<ObjectKey>& keys, const ObjectKey& key) {
    if (m_skipped.size() + m_written.size() < kMostKeys) {
      keys.push_back(key);
    } else {
      m_isIncomplete = true;
    }
  }

  Counters m_counters;
  std::uint64_t m_connection = 0;
  std::vector<ObjectKey> m_skipped;
  std::vector<ObjectKey> m_written;
  bool m_isExpired = false;
  bool m_isIncomplete = false;
};

}  // namespace TalVcs::Kit::Postgres
