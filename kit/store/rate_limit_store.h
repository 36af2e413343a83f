#pragma once

#include <kit/export.h>
#include <kit/store/passing_store.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace TalVcs::Kit {

/// Options of a `RateLimitStore`.
struct RateLimits {
  /// The most bytes of packed forms a second, read and written together; 0 means no limit.
  std::uint64_t bytesPerSecond = 0;
  /// The most calls a second; 0 means no limit.
  std::uint64_t callsPerSecond = 0;
  /// The clock; empty means the system's.
  std::function<std::chrono::steady_clock::time_point()> now = {};
  /// Waits for that time; empty means that the thread sleeps.
  std::function<void(std::chrono::nanoseconds)> sleep = {};
};

/// Slows the calls of a store down to a number of bytes and of calls a second, for a store that is
/// shared or paid for.
///
/// At the limits, each call and its bytes take a certain time. A call that begins before the time
/// of the previous calls is over waits on the caller's thread. So the first call never waits, and
/// one large call may exceed the limit until the next one has waited. Time in which the store
/// wasn't used isn't saved up. No call fails because of a limit.
class TALVCS_KIT_API RateLimitStore final : public PassingStore {
 public:
  /// Passes calls on to `store`, which must not be null, and keeps it alive.
  RateLimitStore(std::shared_ptr<IObjectStore> store, RateLimits limits);
  /// Passes calls on to `store`, which must outlive this object.
  RateLimitStore(IObjectStore& store, RateLimits limits);
  ~RateLimitStore() override;

 protected:
  Status Before(const StoreCall& call) override;
  Status After(const StoreCall& call, Status outcome) override;

 private:
  TALVCS_KIT_NO_EXPORT std::chrono::steady_clock::time_point Now() const;

  RateLimits m_limits;
  /// When the calls so far have used up their time.
  std::chrono::steady_clock::time_point m_free;
};

}  // namespace TalVcs::Kit
