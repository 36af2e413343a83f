#include <tests/support/fixed_clock.h>

#include <cstdlib>
#include <ctime>

#if defined(__linux__) && defined(__LP64__)
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace TalVcs::Testing {
namespace {

std::optional<std::int64_t>& Now() {
  static std::optional<std::int64_t> now;
  return now;
}

// Nothing means the zone of the system.
void SetZone([[maybe_unused]] const std::optional<std::string>& zone) {
#if !defined(_WIN32)
  if (zone) {
    setenv("TZ", zone->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
#endif
}

}  // namespace

FixedClock::FixedClock(std::int64_t second, const char* zone) {
  if (const char* former = std::getenv("TZ")) m_formerZone = former;
  Now() = second;
  SetZone(zone);
}

FixedClock::~FixedClock() {
  Now().reset();
  SetZone(m_formerZone);
}

void FixedClock::Advance(std::int64_t seconds) { *Now() += seconds; }

}  // namespace TalVcs::Testing

#if defined(__linux__) && defined(__LP64__)
// The program's own definition is found before that of the C library.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    struct timespec* now) noexcept {
  const auto& fixed = TalVcs::Testing::Now();
  if (clock == CLOCK_REALTIME && fixed) {
    now->tv_sec = *fixed;
    now->tv_nsec = 987654321;
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}
#endif
