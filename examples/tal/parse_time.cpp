#include "parse_time.h"

#include "failure.h"
#include "terminal.h"

#include <kit/text/times.h>

namespace Tal {

std::chrono::sys_seconds TimeOfOption(const std::string& text) {
  using std::chrono::system_clock;
  const auto now = std::chrono::floor<std::chrono::seconds>(system_clock::now());
  if (const auto time = TalVcs::Kit::ParseTime(text)) return *time;
  if (const auto time = TalVcs::Kit::ParseAge(text, now)) return *time;
  throw Failure(
      "\"" + Printable(text) + "\" is no time; write one such as 2024-05-31 or \"2 weeks ago\"",
      ExitCode::Usage);
}

}  // namespace Tal
