#include <tests/on_demand/lockstep.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>

namespace TalVcs::Testing {
namespace {

std::uint64_t Setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// Returns how the sides differ after the steps of a seed, or "".
std::string RunSequence(std::uint64_t seed, std::uint64_t steps, bool print,
                        std::map<std::string, std::uint64_t>& counts) {
  Lockstep sides(seed);
  std::uint64_t step = 1;
  try {
    for (; step <= steps; ++step) {
      sides.Step();
      if (print) std::cout << step << ' ' << sides.GetOperation() << '\n';
    }
    sides.CompareAll();
  } catch (const Difference& difference) {
    return "seed " + std::to_string(seed) + ", step " + std::to_string(step) + ", " +
           sides.GetOperation() + ": " + difference.what();
  }
  for (const auto& [name, count] : sides.GetCounts()) counts[name] += count;
  return {};
}

// TALVCS_ON_DEMAND_SEQUENCES=1 TALVCS_ON_DEMAND_SEED=n repeats one sequence and prints its steps.
TEST(OnDemandAgainstOrdinary, AgreesOverRandomOperations) {
  const std::uint64_t sequences = Setting("TALVCS_ON_DEMAND_SEQUENCES", 60);
  const std::uint64_t steps = Setting("TALVCS_ON_DEMAND_STEPS", 200);
  const std::uint64_t first = Setting("TALVCS_ON_DEMAND_SEED", 1);
  std::cout << "seeds from " << first << " on\n";
  std::map<std::string, std::uint64_t> counts;
  std::uint64_t differing = 0;
  const auto start = std::chrono::steady_clock::now();

  for (std::uint64_t seed = first; seed < first + sequences && differing < 10; ++seed) {
    const std::string difference = RunSequence(seed, steps, sequences == 1, counts);
    EXPECT_EQ(difference, "");
    differing += difference.empty() ? 0 : 1;
  }

  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  std::cout << sequences << " sequences of " << steps << " steps, " << time.count() << " s\n";
  for (const auto& [name, count] : counts) std::cout << "  " << name << ' ' << count << '\n';
  if (sequences < 50 || steps < 200) return;
  EXPECT_EQ(counts.size(), 31U) << "an operation was never drawn, or no read failed";
}

}  // namespace
}  // namespace TalVcs::Testing
