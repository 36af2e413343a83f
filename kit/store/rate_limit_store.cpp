#include <kit/store/rate_limit_store.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the time that `amount` takes at `perSecond`.
std::chrono::nanoseconds TimeOf(std::uint64_t amount, std::uint64_t perSecond) {
  if (perSecond == 0) return {};
  // A year is enough; this keeps every sum within the range of the type.
  constexpr double kMostSeconds = 31'536'000;
  const double seconds =
      std::min(static_cast<double>(amount) / static_cast<double>(perSecond), kMostSeconds);
  return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

}  // namespace

RateLimitStore::RateLimitStore(std::shared_ptr<IObjectStore> store, RateLimits limits)
    : PassingStore(std::move(store)), m_limits(std::move(limits)) {}
RateLimitStore::RateLimitStore(IObjectStore& store, RateLimits limits)
    : PassingStore(store), m_limits(std::move(limits)) {}
RateLimitStore::~RateLimitStore() = default;

std::chrono::steady_clock::time_point RateLimitStore::Now() const {
  return m_limits.now ? m_limits.now() : std::chrono::steady_clock::now();
}

Status RateLimitStore::Before(const StoreCall& /*call*/) {
  const auto now = Now();
  if (m_free <= now) {
    m_free = now;
    return {};
  }
  const std::chrono::nanoseconds rest = m_free - now;
  if (m_limits.sleep) {
    m_limits.sleep(rest);
  } else {
    std::this_thread::sleep_for(rest);
  }
  return {};
}

Status RateLimitStore::After(const StoreCall& call, Status outcome) {
  m_free += TimeOf(call.sizeBytes, m_limits.bytesPerSecond) + TimeOf(1, m_limits.callsPerSecond);
  return outcome;
}

}  // namespace TalVcs::Kit
