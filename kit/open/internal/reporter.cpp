#include <kit/open/internal/errors.h>
#include <kit/open/internal/reporter.h>

namespace TalVcs::Kit {

namespace {

// Fifty calls a second at the most.
constexpr std::chrono::milliseconds kBetweenCalls(20);

}  // namespace

Status Reporter::Begin(std::string_view phase, std::optional<std::uint64_t> total) {
  m_step = {};
  m_step.phase = phase;
  m_step.total = total;
  return Call();
}

Status Reporter::Add(std::uint64_t items, std::uint64_t sizeBytes) {
  m_step.done += items;
  m_step.sizeBytes += sizeBytes;
  if (!m_progress || Clock::now() - m_called < kBetweenCalls) return {};
  return Call();
}

Status Reporter::End() { return Call(); }

Status Reporter::Call() {
  if (!m_progress) return {};
  if (!m_isCancelled) m_isCancelled = !m_progress(m_step);
  m_called = Clock::now();
  if (!m_isCancelled) return {};
  return MakeError(ErrorCode::Cancelled, "cancelled by the host");
}

}  // namespace TalVcs::Kit
