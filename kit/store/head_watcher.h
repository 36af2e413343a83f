#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <chrono>
#include <functional>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// A store that can wait until others move heads. Stores that can do it implement this interface
/// beside `IObjectStore`; callers use the function `WaitForHeads`, which polls other stores.
class TALVCS_KIT_API IHeadWatcher {
 public:
  virtual ~IHeadWatcher();

  /// Returns the heads of the store as soon as they aren't equal to `seen`, or after `timeout`, as
  /// `IObjectStore::Heads` returns them.
  ///
  /// *For callers.* `seen` is sorted by the bytes of the names, as `Heads` returns it. A move
  /// before the call counts, so that nothing is missed between two calls. It may return earlier
  /// with equal heads. The call can't be cancelled; a short timeout takes the place of that.
  ///
  /// *For implementers.* Begin to listen, then read the heads and compare them, then wait. Fails as
  /// `Heads` does, with `Unavailable` if the connection is lost meanwhile. A store over another one
  /// fails with `Unsupported` if the store below can't wait.
  virtual Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                                 std::chrono::milliseconds timeout) = 0;

 protected:
  IHeadWatcher() = default;
  IHeadWatcher(const IHeadWatcher&) = default;
  IHeadWatcher& operator=(const IHeadWatcher&) = default;
};

/// Calls `IHeadWatcher::WaitForHeads` of a store. Fails with `Unsupported` if it has none.
TALVCS_KIT_API Result<std::vector<Head>> WatchHeads(IObjectStore& store, std::span<const Head> seen,
                                                    std::chrono::milliseconds timeout);

/// Options of `WaitForHeads`.
struct HeadWaitOptions {
  /// When to return if no head moves.
  std::chrono::milliseconds timeout = std::chrono::minutes(1);
  /// How often to read the heads of a store that can't wait, and how often to call `progress`; a
  /// millisecond at least.
  std::chrono::milliseconds interval = std::chrono::seconds(1);
  /// Waits; empty means that the thread sleeps.
  std::function<void(std::chrono::milliseconds)> sleep = {};
  /// Returns the time, which measures how long a store has waited; empty means the steady clock.
  std::function<std::chrono::steady_clock::time_point()> clock = {};
  /// Phase: "wait". It is called at the beginning and after each interval.
  Progress progress = {};
};

/// Waits until the heads of any store aren't equal to `seen`, which is sorted by name.
///
/// Returns the heads: different ones, or equal ones after the timeout. A store that implements
/// `IHeadWatcher` waits by itself; when it returns early with equal heads, it waits again for the
/// rest of the time, up to a hundred times a second. Of other stores the heads are read in
/// intervals, the first time at once. Fails with `Cancelled`, and as `IObjectStore::Heads` does.
TALVCS_KIT_API Result<std::vector<Head>> WaitForHeads(IObjectStore& store,
                                                      std::span<const Head> seen,
                                                      const HeadWaitOptions& options = {});

}  // namespace TalVcs::Kit
