#include <gtest/gtest.h>
#include <kit/sharing/internal/branch_lock.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/passing_store.h>

#include <memory>
#include <new>
#include <optional>
#include <string>

namespace TalVcs::Kit {
namespace {

constexpr const char* kName = "sync/master";

/// A store for which memory runs out.
class StarvedStore : public PassingStore {
 public:
  using PassingStore::PassingStore;

  std::optional<StoreOperation> starved;

 protected:
  Status Before(const StoreCall& call) override {
    if (call.operation == starved) throw std::bad_alloc();
    return {};
  }
};

/// Takes the lock, and lets go of it while `operation` finds no memory. Returns whether the lock
/// is left behind.
bool LeavesLock(std::optional<StoreOperation> operation) {
  StarvedStore store(std::make_shared<MemoryObjectStore>());
  const Progress progress;
  Reporter reporter(progress);
  const BranchLock::Sleep sleep = [](BranchLock::Milliseconds) {};
  {
    BranchLock lock(store, "master", sleep, reporter);
    EXPECT_TRUE(lock.Take());
    EXPECT_TRUE(store.Value(kName).value());
    store.starved = operation;
  }
  store.starved.reset();
  return store.Value(kName).value().has_value();
}

TEST(BranchLock, IsRemovedAtItsEnd) { EXPECT_FALSE(LeavesLock(std::nullopt)); }

TEST(BranchLock, StaysBehindIfMemoryRunsOutAtItsEnd) {
  EXPECT_TRUE(LeavesLock(StoreOperation::Value));
  EXPECT_TRUE(LeavesLock(StoreOperation::SetValue));
}

}  // namespace
}  // namespace TalVcs::Kit
