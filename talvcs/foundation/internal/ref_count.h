#pragma once

#include <atomic>
#include <cstdint>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define TALVCS_SINGLE_THREADED (__libc_single_threaded != 0)
#else
#define TALVCS_SINGLE_THREADED false
#endif

namespace TalUtils {

/// Counts the holders of a shared, immutable piece of memory; starts with one holder.
///
/// Threads: counting is atomic, so holders on different threads may come and go at once. `IsSole`
/// is meant for a holder: no other thread can become a holder while it is true.
class RefCount {
 public:
  RefCount() noexcept = default;
  RefCount(const RefCount&) = delete;
  RefCount& operator=(const RefCount&) = delete;

  // A process that never had a second thread needs no atomic step, which costs more than all else
  // in copying an id.
  void Acquire() noexcept {
    if (TALVCS_SINGLE_THREADED) {
      m_count.store(m_count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      m_count.fetch_add(1, std::memory_order_relaxed);
    }
  }

  /// Returns true if this was the last holder, who then has to free the memory.
  [[nodiscard]] bool Release() noexcept {
    if (IsSole()) return true;
    if (TALVCS_SINGLE_THREADED) {
      m_count.store(m_count.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
      return false;
    }
    return m_count.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }

  bool IsSole() const noexcept { return m_count.load(std::memory_order_acquire) == 1; }

 private:
  std::atomic<std::uint32_t> m_count{1};
};

#undef TALVCS_SINGLE_THREADED

}  // namespace TalUtils
