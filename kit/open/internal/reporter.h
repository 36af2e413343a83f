#pragma once

#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace TalVcs::Kit {

/// Counts the steps of a long operation and calls the host's progress callback not too often.
///
/// Each function fails with `Cancelled` after the callback returned false, and the operation then
/// has to end. `progress` must outlive the reporter.
class Reporter {
 public:
  explicit Reporter(const Progress& progress) : m_progress(progress) {}
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  /// Begins a phase. The name is a literal.
  Status Begin(std::string_view phase, std::optional<std::uint64_t> total = std::nullopt);
  /// Counts more items and bytes of the phase.
  Status Add(std::uint64_t items, std::uint64_t sizeBytes = 0);
  /// Ends the phase.
  Status End();

 private:
  using Clock = std::chrono::steady_clock;

  Status Call();

  const Progress& m_progress;
  ProgressStep m_step;
  Clock::time_point m_called;
  bool m_isCancelled = false;
};

}  // namespace TalVcs::Kit
