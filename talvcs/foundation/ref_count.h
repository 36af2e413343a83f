#pragma once

#include <atomic>
#include <cstdint>

namespace TalUtils {

/// Counts the holders of a shared, immutable piece of memory; starts with one holder.
///
/// Threads: counting is atomic, so holders on different threads may come and go at once. `IsSole`
/// answers for the calling holder: nobody else can become a holder while it is true.
class RefCount {
 public:
  RefCount() noexcept = default;
  RefCount(const RefCount&) = delete;
  RefCount& operator=(const RefCount&) = delete;

  void Acquire() noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }

  /// Returns true if this was the last holder, who then has to free the memory.
  [[nodiscard]] bool Release() noexcept {
    if (IsSole()) return true;
    return m_count.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }

  bool IsSole() const noexcept { return m_count.load(std::memory_order_acquire) == 1; }

 private:
  std::atomic<std::uint32_t> m_count{1};
};

}  // namespace TalUtils
