#pragma once

#include <kit/store/passing_store.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace TalVcs::Testing {

/// Counts the objects that the store below passes on. Each call that reads may take a time.
class CountingStore final : public Kit::PassingStore {
 public:
  using Kit::PassingStore::PassingStore;

  /// Returns how many objects a call makes it pass on.
  std::uint64_t CountIn(const std::function<void()>& call) {
    count = 0;
    call();
    return count;
  }

  std::uint64_t count = 0;
  std::chrono::milliseconds delay{0};

 protected:
  Kit::Status Before(const Kit::StoreCall& call) override {
    const bool reads = call.operation == Kit::StoreOperation::Read ||
                       call.operation == Kit::StoreOperation::ReadHistory;
    if (reads) std::this_thread::sleep_for(delay);
    return {};
  }
  Kit::Result<Buffer> Found(const Id&, Kit::Result<Buffer> packed) override {
    ++count;
    return packed;
  }
};

}  // namespace TalVcs::Testing
