#include <bench/workloads.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Bench {
namespace {

// The fingerprints were worked out by another program from the definition of the inputs: only then
// are figures of different programs figures of the same work.

std::uint64_t FingerprintOfImport(std::uint32_t files) {
  Fingerprint fingerprint;
  for (std::uint32_t i = 0; i < files; ++i) {
    fingerprint.Add(Path(i));
    fingerprint.Add(Content(Family::Base, i, 0));
  }
  return fingerprint.Value();
}

std::uint64_t FingerprintOfHistory(const HistoryPlan& plan) {
  Fingerprint fingerprint;
  for (const std::vector<Change>& commit : plan) {
    for (const Change& change : commit) {
      fingerprint.Add(Path(change.index));
      fingerprint.Add(Content(change));
    }
  }
  return fingerprint.Value();
}

std::uint64_t FingerprintOfOrder(std::uint32_t files) {
  Fingerprint fingerprint;
  for (const std::uint32_t index : Shuffled(files)) {
    for (int shift = 0; shift < 32; shift += 8) {
      const auto byte = static_cast<unsigned char>(index >> shift);
      fingerprint.Add(&byte, 1);
    }
  }
  return fingerprint.Value();
}

TEST(Workloads, ImportHasTheFingerprintOfItsDefinition) {
  EXPECT_EQ(FingerprintOfImport(1000), 0x7A359B5F75624A84u);
  EXPECT_EQ(FingerprintOfImport(10000), 0xB79A90F25DA1A1B6u);
  EXPECT_EQ(FingerprintOfImport(100000), 0xCE6BFCCCFAA7674Bu);
}

TEST(Workloads, HistoryHasTheFingerprintOfItsDefinition) {
  EXPECT_EQ(FingerprintOfHistory(PlanHistory(10000, 1000)), 0x0D9540DA6C2C4A77u);
}

TEST(Workloads, DroppedBranchHasTheFingerprintOfItsDefinition) {
  EXPECT_EQ(FingerprintOfHistory(PlanDroppedBranch(10000, 1000)), 0x75C96B47F8968481u);
}

TEST(Workloads, ShuffledOrderHasTheFingerprintOfItsDefinition) {
  EXPECT_EQ(FingerprintOfOrder(1000), 0x5A5B2C576001DC79u);
  EXPECT_EQ(FingerprintOfOrder(10000), 0xF84C2C5A98778D6Du);
}

TEST(Workloads, DiffHasTheFingerprintOfItsDefinition) {
  EXPECT_EQ(FingerprintOf(PlanDiff(10000)), 0x28902873652A6010u);
  EXPECT_EQ(FingerprintOf(PlanDiff(100000)), 0xCB47FE112EB7E796u);
}

TEST(Workloads, MergeHasThreeDisjointSetsOfFiles) {
  const MergePlan plan = PlanMerge(10000);
  std::vector<std::uint32_t> all = plan.ours;
  all.insert(all.end(), plan.theirs.begin(), plan.theirs.end());
  all.insert(all.end(), plan.both.begin(), plan.both.end());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(plan.both.size(), 10u);
  EXPECT_EQ(all.size(), 190u);
  EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
}

}  // namespace
}  // namespace TalVcs::Bench
