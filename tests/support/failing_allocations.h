#pragma once

#include <cstddef>
#include <new>

namespace TalVcs::Testing {

/// While it lives, lets one allocation of this thread fail with `std::bad_alloc`, after `passed`
/// others have succeeded, or that one and all that follow. A program that uses it links
/// failing_allocations.cpp, which replaces the global operator new.
class FailingAllocation {
 public:
  enum class Kind { One, Lasting };

  explicit FailingAllocation(std::size_t passed, Kind kind = Kind::One) noexcept;
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  ~FailingAllocation();

  /// True once an allocation has failed.
  bool HasFired() const noexcept;
};

/// Number of blocks that the program has from operator new and hasn't given back.
std::ptrdiff_t LiveBlocks() noexcept;

#if defined(__GLIBC__)
/// Number of bytes in these blocks, as the heap counts them.
std::ptrdiff_t LiveBytes() noexcept;
#endif

/// Number of times that this thread has asked operator new, failures among them.
std::size_t AllocationsMade() noexcept;

/// Makes fresh things with `prepare`, calls `act` on them while the first allocation fails, and
/// `check` on them with whether that threw; then all of it anew with the second one failing, and so
/// on until nothing fails. Returns how many allocations failed.
template <class Prepare, class Act, class Check>
int ForEachFailingAllocation(Prepare prepare, Act act, Check check) {
  for (int failures = 0;; ++failures) {
    auto things = prepare();
    bool threw = false;
    bool fired = false;
    {
      const FailingAllocation fault(static_cast<std::size_t>(failures));
      try {
        act(things);
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      fired = fault.HasFired();
    }
    check(things, threw);
    if (!fired) return failures;
  }
}

}  // namespace TalVcs::Testing
