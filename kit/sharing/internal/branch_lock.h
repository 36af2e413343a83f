#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// A lock that callers take after many lost races for a branch, so that they move it one by one.
///
/// It is a value of the store with a random text of its holder. A holder that is gone leaves it;
/// the others take it over once the text has stayed the same while they waited for a lease. Their
/// own waiting measures that, so that clocks need not agree.
///
/// The lock makes races rare, and nothing relies on it: two may hold it at once, and a store that
/// keeps no values has none. Heads move by comparison with where they were expected.
class BranchLock {
 public:
  using Milliseconds = std::chrono::milliseconds;
  using Sleep = std::function<void(Milliseconds)>;

  /// How long a lock holds without a sign of its holder.
  static constexpr Milliseconds kLease{5000};

  /// All references must outlive the lock.
  BranchLock(IObjectStore& store, std::string_view branch, const Sleep& sleep, Reporter& reporter);
  BranchLock(const BranchLock&) = delete;
  BranchLock& operator=(const BranchLock&) = delete;
  ~BranchLock();

  /// Waits until nobody else holds the lock, three leases at the most. Fails with `Cancelled`.
  Status WaitUntilFree();
  /// Takes the lock, or gives up after as long. Fails with `Cancelled`.
  Status Take();

 private:
  std::optional<std::string> Holder();
  Status Wait(Milliseconds time);
  Status WaitForHolder();

  IObjectStore& m_store;
  std::string m_name;
  std::string m_text;
  const Sleep& m_sleep;
  Reporter& m_reporter;
  Milliseconds m_waited{0};
  bool m_isTaken = false;
};

}  // namespace TalVcs::Kit
