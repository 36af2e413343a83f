#include <kit/store/head_watcher.h>
#include <kit/store/internal/find_interface.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace TalVcs::Kit {

IHeadWatcher::~IHeadWatcher() = default;

Result<std::vector<Head>> WatchHeads(IObjectStore& store, std::span<const Head> seen,
                                     std::chrono::milliseconds timeout) {
  if (auto* const watcher = FindInterface<IHeadWatcher>(store)) {
    return watcher->WaitForHeads(seen, timeout);
  }
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = "the store can't wait for heads";
  return error;
}

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A store that returns at once again and again must not keep the processor busy.
constexpr Milliseconds kShortestWait(10);

/// Waits in steps, between which the host may cancel.
class HeadWait {
 public:
  HeadWait(IObjectStore& store, std::span<const Head> seen, const HeadWaitOptions& options)
      : m_store(store), m_seen(seen), m_options(options) {}

  Result<std::vector<Head>> Run() {
    for (;;) {
      if (IsCancelled()) return Cancelled();
      // Without a callback there is nothing to do between two steps of a store that waits.
      const Milliseconds interval = std::min(m_left, std::max(m_options.interval, Milliseconds(1)));
      const Milliseconds step = m_options.progress ? interval : m_left;
      const Clock::time_point start = Now();
      Result<std::vector<Head>> heads = Look(step);
      if (!heads || !std::ranges::equal(*heads, m_seen) || m_left <= Milliseconds(0)) return heads;
      m_left -= m_canWatch ? WaitOn(step, start) : interval;
      if (!m_canWatch) Sleep(interval);
    }
  }

 private:
  /// Returns the heads, after `step` if the store can wait.
  Result<std::vector<Head>> Look(Milliseconds step) {
    if (m_canWatch) {
      Result<std::vector<Head>> heads = WatchHeads(m_store, m_seen, step);
      m_canWatch = heads || heads.error().code != ErrorCode::Unsupported;
      if (m_canWatch) return heads;
    }
    return m_store.Heads();
  }

  /// Returns how much of `step` has passed since `start`, after the shortest wait at least.
  Milliseconds WaitOn(Milliseconds step, Clock::time_point start) const {
    const auto passed = std::chrono::duration_cast<Milliseconds>(Now() - start);
    const Milliseconds shortest = std::min(step, kShortestWait);
    if (passed < shortest) Sleep(shortest - passed);
    return std::clamp(passed, shortest, step);
  }

  Clock::time_point Now() const { return m_options.clock ? m_options.clock() : Clock::now(); }

  void Sleep(Milliseconds step) const {
    if (m_options.sleep) {
      m_options.sleep(step);
    } else {
      std::this_thread::sleep_for(step);
    }
  }

  bool IsCancelled() const {
    ProgressStep step;
    step.phase = "wait";
    return m_options.progress && !m_options.progress(step);
  }

  static Error Cancelled() {
    Error error;
    error.code = ErrorCode::Cancelled;
    error.message = "cancelled by the host";
    return error;
  }

  IObjectStore& m_store;
  std::span<const Head> m_seen;
  const HeadWaitOptions& m_options;
  Milliseconds m_left = std::max(m_options.timeout, Milliseconds(0));
  bool m_canWatch = true;
};

}  // namespace

Result<std::vector<Head>> WaitForHeads(IObjectStore& store, std::span<const Head> seen,
                                       const HeadWaitOptions& options) {
  return HeadWait(store, seen, options).Run();
}

}  // namespace TalVcs::Kit
