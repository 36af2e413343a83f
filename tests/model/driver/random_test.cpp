#include "run.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace {

std::uint64_t Setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

void PrintFigures(const std::map<std::string, std::uint64_t>& operations, std::uint64_t sequences,
                  std::uint64_t endedEarly, double seconds) {
  std::uint64_t total = 0;
  for (const auto& [name, count] : operations) total += count;
  std::cout << sequences << " sequences, " << total << " operations, " << endedEarly
            << " ended early, " << seconds << " s\n";
  for (const auto& [name, count] : operations) std::cout << "  " << name << ' ' << count << '\n';
}

TEST(LibraryAgainstModel, AgreesOverRandomOperations) {
  const std::uint64_t sequences = Setting("TALVCS_MODEL_SEQUENCES", 200);
  const std::uint64_t steps = Setting("TALVCS_MODEL_STEPS", 200);
  const std::uint64_t first = Setting("TALVCS_MODEL_SEED", 1);
  std::cout << "seeds from " << first << " on\n";
  std::map<std::string, std::uint64_t> operations;
  std::uint64_t endedEarly = 0;
  std::uint64_t differing = 0;
  const auto start = std::chrono::steady_clock::now();

  for (std::uint64_t seed = first; seed < first + sequences && differing < 10; ++seed) {
    ModelTest::SeededChoices choices(seed);
    const ModelTest::Outcome outcome = ModelTest::Run(choices, steps);
    EXPECT_EQ(outcome.difference, "") << "again with --seed=" << seed << " --steps=" << steps;
    differing += outcome.difference.empty() ? 0 : 1;
    endedEarly += outcome.endedEarly ? 1 : 0;
    for (const auto& [name, count] : outcome.operations) operations[name] += count;
  }

  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  PrintFigures(operations, sequences, endedEarly, time.count());
  if (sequences < 100 || steps < 100) return;
  EXPECT_EQ(operations.size(), 33U) << "an operation was never drawn";
  EXPECT_LE(endedEarly * 20, sequences) << "the runs end too early to prove anything";
}

// Repeats one sequence and prints its operations.
int Repeat(std::uint64_t seed, std::uint64_t steps) {
  ModelTest::SeededChoices choices(seed);
  const ModelTest::Outcome outcome = ModelTest::Run(choices, steps, true);
  if (outcome.endedEarly) std::cerr << "ended early\n";
  if (outcome.difference.empty()) return 0;
  std::cerr << "seed " << seed << ", " << outcome.difference << '\n';
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::string seed;
  std::string steps = "200";
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with("--seed=")) seed = argument.substr(7);
    if (argument.starts_with("--steps=")) steps = argument.substr(8);
  }
  if (!seed.empty()) return Repeat(std::stoull(seed), std::stoull(steps));
  return RUN_ALL_TESTS();
}
