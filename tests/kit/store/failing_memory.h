#pragma once

#include <gtest/gtest.h>
#include <tests/kit/store/document_states.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/failing_allocations.h>

#include <cstddef>
#include <filesystem>
#include <new>
#include <string>

namespace TalVcs::Testing {

/// Opens a document, saves and closes it while memory runs out, at every allocation of so many,
/// once and for good until the store object is destroyed. The document is in the state before or
/// after the save, and can be saved to. `open` returns the result of opening a path.
template <class Open>
void SaveWhileMemoryRunsOut(int step, Open open) {
  for (const auto kind : {FailingAllocation::Kind::One, FailingAllocation::Kind::Lasting}) {
    int failures = 0;
    for (bool fired = true; fired; failures += step) {
      const TemporaryFolder folder;
      const std::filesystem::path path = folder.Path() / "document";
      {
        auto store = open(path).value();
        SaveOldState(store).value();
      }
      {
        const FailingAllocation fault(static_cast<std::size_t>(failures), kind);
        try {
          auto store = open(path);
          if (store) static_cast<void>(SaveNewState(*store));
        } catch (const std::bad_alloc&) {
        }
        fired = fault.HasFired();
      }
      auto store = open(path).value();
      const std::string state = DescribeStore(store);
      ASSERT_TRUE(state == kOldState || state == kNewState) << failures << ": " << state;
      ASSERT_TRUE(fired || state == kNewState);
      if (state == kOldState) SaveNewState(store).value();
      ASSERT_EQ(DescribeStore(store), kNewState) << failures;
    }
    EXPECT_GT(failures, 50);
  }
}

}  // namespace TalVcs::Testing
