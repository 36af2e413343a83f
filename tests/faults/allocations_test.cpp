// Each allocation of a repository's life fails in turn. Whatever is interrupted by that leaves
// nothing allocated, a repository in order, and nothing in the way of a second try.

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/contents.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/fixed_clock.h>
#include <tests/support/invariants.h>
#include <tests/support/scale.h>
#include <tests/support/scenario.h>

#include <cstdlib>
#include <iostream>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>

namespace TalVcs::Testing {
namespace {

// Each allocation, or each seventh under sanitizers.
constexpr std::size_t kStride = Scaled(20) == 20 ? 1 : 7;

enum class End { Passed, Threw, Unfired };

/// Calls `act` while allocation number `number` fails. Anything but a failed allocation passes on.
template <class Act>
End RunWithFailure(std::size_t number, Act act) {
  const FailingAllocation fault(number);
  try {
    act();
  } catch (const std::bad_alloc&) {
    return End::Threw;
  } catch (const std::length_error&) {
    return End::Threw;
  }
  return fault.HasFired() ? End::Passed : End::Unfired;
}

class FailingAllocations : public testing::Test {
 protected:
  /// Lives once with each `stride`-th allocation failing, from number `first` on. Returns how often
  /// one failed.
  std::size_t Live(const Scenario& scenario, std::size_t first, std::size_t stride) {
    const FixedClock clock(1'000'000'000, "ZONE-1");
    const std::string expected = Undisturbed(scenario);
    std::size_t failures = 0;
    for (std::size_t number = first;; number += stride) {
      if (!LiveOnce(scenario, number, expected) || HasFailure()) return failures;
      ++failures;
    }
  }

  static std::string Undisturbed(const Scenario& scenario) {
    Repository repository = NewRepository();
    Kit::MemoryStore store;
    return scenario.Run(repository, store);
  }

  /// Returns false if no allocation failed, as there were fewer.
  static bool LiveOnce(const Scenario& scenario, std::size_t number, const std::string& expected) {
    SCOPED_TRACE("allocation " + std::to_string(number));
    const std::ptrdiff_t before = LiveBlocks();
    End end = End::Unfired;
    {
      Repository repository = NewRepository();
      Kit::MemoryStore store;
      std::string result;
      end = RunWithFailure(number, [&] { result = scenario.Run(repository, store); });
      EXPECT_EQ(FindViolation(repository), "");
      EXPECT_TRUE(end == End::Threw || result == expected);
      scenario.Run(repository, store);
      EXPECT_EQ(FindViolation(repository), "") << "after the second try";
      Scenario::RemoveBranches(repository);
      repository.UpdateStorage();
      EXPECT_EQ(Inventory(repository), "") << "something is held for ever";
      EXPECT_EQ(scenario.Run(repository, store), expected) << "in the third try";
    }
    EXPECT_EQ(LiveBlocks(), before) << "something leaks";
    return end != End::Unfired;
  }
};

TEST_F(FailingAllocations, HappenInsideTheLibraries) {
  const std::ptrdiff_t before = LiveBlocks();
  Repository repository = NewRepository();
  repository.SyncWithStorage(SharedBlob("a blob"));
  EXPECT_GT(LiveBlocks(), before + 3);
  EXPECT_EQ(RunWithFailure(0, [&] { repository.CreateBranch(TAL_WIDE("a branch"), nullptr); }),
            End::Threw);
}

TEST_F(FailingAllocations, EachFailureInAShortScenarioLosesNothing) {
  const std::size_t failures = Live(Scenario(6, 1), 0, kStride);
  std::cout << failures << " allocations failed\n";
  EXPECT_GT(failures, Scaled(1000));
}

// The place to begin differs from run to run, so that in time all are reached.
TEST_F(FailingAllocations, SampledFailureInALongScenarioLosesNothing) {
  const Scenario scenario(300, 20);
  const std::size_t before = AllocationsMade();
  Undisturbed(scenario);
  const std::size_t stride = (AllocationsMade() - before) / Scaled(200);
  const char* given = std::getenv("TALVCS_FAULTS_OFFSET");
  const std::size_t offset =
      given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()() % stride;
  std::cout << "every " << stride << "th allocation, from TALVCS_FAULTS_OFFSET=" << offset << '\n';
  EXPECT_GE(Live(scenario, offset, stride), Scaled(180));
}

TEST_F(FailingAllocations, SaveToAFolderLeavesThePreviousVersionOrTheNew) {
  Repository oldState = OldState();
  Repository newState = NewState();
  const std::string before = Describe(oldState);
  const std::string after = Describe(newState);
  Kit::DirectoryStoreOptions options;
  options.durable = false;
  const TemporaryFolder folder;
  const std::string path = folder.Path().string();
  for (std::size_t number = 0;; ++number) {
    Kit::DirectoryStore first(path, options);
    ASSERT_TRUE(Save(oldState, first) && first.Commit()) << number << ": " << first.LastError();
    first.Refresh();
    const std::ptrdiff_t live = LiveBlocks();
    bool saved = false;
    const End end = RunWithFailure(number, [&] {
      Kit::DirectoryStore store(path, options);
      saved = Save(newState, store) && store.Commit();
    });
    EXPECT_EQ(LiveBlocks(), live) << number;
    EXPECT_TRUE(saved || end == End::Threw) << number;
    Kit::DirectoryStore reader(path, options);
    const std::string found = Load(reader);
    ASSERT_TRUE(found == after || (!saved && found == before)) << number << ": " << found;
    EXPECT_TRUE(reader.FindDamage().empty()) << number;
    if (end != End::Unfired) continue;
    EXPECT_GT(number, 100u);
    return;
  }
}

}  // namespace
}  // namespace TalVcs::Testing
