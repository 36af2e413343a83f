#pragma once

#include <gtest/gtest.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/scale.h>

#include <cstddef>
#include <new>
#include <string>

namespace TalVcs::Testing {

/// Makes fresh things with `prepare` and calls `act` on them while one of its allocations fails:
/// each in turn, or each seventh under sanitizers. Where that threw, calls `check` on the things,
/// and `act` again, which must return the text that it returns without a failure. Nothing may stay
/// allocated. Returns the number of allocations.
template <class Prepare, class Act, class Check>
std::size_t FailEach(Prepare prepare, Act act, Check check) {
  constexpr std::size_t kStride = Scaled(20) == 20 ? 1 : 7;
  std::string expected;
  {
    auto undisturbed = prepare();
    expected = act(undisturbed);
  }
  const std::ptrdiff_t live = LiveBlocks();
  std::size_t number = 0;
  for (bool fired = true; fired && !testing::Test::HasFailure(); number += kStride) {
    auto things = prepare();
    std::string result;
    bool threw = false;
    {
      const FailingAllocation fault(number);
      try {
        result = act(things);
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      fired = fault.HasFired();
    }
    if (threw) {
      check(things);
      result = act(things);
    }
    EXPECT_EQ(result, expected) << "allocation " << number;
  }
  EXPECT_EQ(LiveBlocks(), live) << "something leaks";
  return number;
}

/// Does the same without a check.
template <class Prepare, class Act>
std::size_t FailEach(Prepare prepare, Act act) {
  return FailEach(prepare, act, [](const auto&) {});
}

}  // namespace TalVcs::Testing
