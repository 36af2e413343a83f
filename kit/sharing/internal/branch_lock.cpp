// value := 32 hexadecimal digits    of the holder; under the name "sync/" branch

#include <kit/sharing/internal/branch_lock.h>
#include <kit/store/quietly.h>

#include <random>
#include <utility>

namespace TalVcs::Kit {

namespace {

using Milliseconds = BranchLock::Milliseconds;

constexpr Milliseconds kBetweenLooks(50);
// Two that take the lock at once both see, after this time, whose text is there.
constexpr Milliseconds kBeforeSecondLook(20);
constexpr Milliseconds kMostWaiting = 3 * BranchLock::kLease;

std::string RandomText() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::random_device random;
  std::string text;
  while (text.size() < 32) text += kDigits[random() % 16];
  return text;
}

}  // namespace

BranchLock::BranchLock(IObjectStore& store, std::string_view branch, const Sleep& sleep,
                       Reporter& reporter)
    : m_store(store),
      m_name(std::string("sync/").append(branch)),
      m_text(RandomText()),
      m_sleep(sleep),
      m_reporter(reporter) {}

// If the lock can't be removed, the others wait for a lease.
BranchLock::~BranchLock() {
  if (!m_isTaken) return;
  Quietly([this] {
    if (Holder() != m_text) return;
    [[maybe_unused]] const Status ignored = m_store.SetValue(m_name, std::nullopt);
  });
}

/// Returns the text of the holder; none also if the store can't be read.
std::optional<std::string> BranchLock::Holder() {
  Result<std::optional<std::string>> value = m_store.Value(m_name);
  return value ? *std::move(value) : std::nullopt;
}

Status BranchLock::Wait(Milliseconds time) {
  m_sleep(time);
  m_waited += time;
  return m_reporter.Add(1);
}

Status BranchLock::WaitUntilFree() {
  m_waited = Milliseconds(0);
  return WaitForHolder();
}

Status BranchLock::WaitForHolder() {
  std::optional<std::string> seen;
  Milliseconds since(0);
  Status status;
  while (status && m_waited < kMostWaiting) {
    std::optional<std::string> holder = Holder();
    if (!holder || *holder == m_text) break;
    if (holder != std::exchange(seen, holder)) since = m_waited;
    if (m_waited - since >= kLease) break;
    status = Wait(kBetweenLooks);
  }
  return status;
}

Status BranchLock::Take() {
  m_waited = Milliseconds(0);
  while (m_waited < kMostWaiting) {
    Status status = WaitForHolder();
    if (!status) return status;
    if (!m_store.SetValue(m_name, m_text)) return {};
    m_isTaken = true;
    status = Wait(kBeforeSecondLook);
    if (!status || Holder() == m_text) return status;
  }
  return {};
}

}  // namespace TalVcs::Kit
