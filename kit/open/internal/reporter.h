#pragma once

#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

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

/// Calls `work`, which returns a result, as one phase. Fails as `work` does, and with `Cancelled`.
template <class Work>
std::invoke_result_t<Work> InPhase(Reporter& reporter, std::string_view phase, Work work) {
  Status status = reporter.Begin(phase);
  if (!status) return std::move(status).error();
  std::invoke_result_t<Work> result = work();
  if (result) status = reporter.End();
  if (!status) return std::move(status).error();
  return result;
}

}  // namespace TalVcs::Kit
