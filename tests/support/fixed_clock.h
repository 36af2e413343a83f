#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace TalVcs::Testing {

/// While it lives, the system's clock stands at the second that was set last and the local time
/// zone is the one given, so that a run can be repeated exactly.
///
/// Where the C library doesn't let a program replace its clock, the clock goes on, and a comparison
/// must read the times back.
class FixedClock {
 public:
  /// `zone` is a POSIX time zone such as "ZONE-5:30".
  FixedClock(std::int64_t second, const char* zone);
  FixedClock(const FixedClock&) = delete;
  FixedClock& operator=(const FixedClock&) = delete;
  ~FixedClock();

  void Advance(std::int64_t seconds);

 private:
  std::optional<std::string> m_formerZone;
};

}  // namespace TalVcs::Testing
