#include <tests/support/failing_allocations.h>

#include <cstdlib>

namespace {

enum class Fault { kNone, kArmed, kFired };

thread_local Fault fault = Fault::kNone;
thread_local std::size_t allocations_left = 0;

bool HasToFail() noexcept {
  if (fault != Fault::kArmed) return false;
  if (allocations_left > 0) {
    --allocations_left;
    return false;
  }
  fault = Fault::kFired;
  return true;
}

}  // namespace

void* operator new(std::size_t size) {
  void* memory = HasToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace TalVcs::Testing {

FailingAllocation::FailingAllocation(std::size_t passed) noexcept {
  allocations_left = passed;
  fault = Fault::kArmed;
}

FailingAllocation::~FailingAllocation() { fault = Fault::kNone; }

bool FailingAllocation::HasFired() const noexcept { return fault == Fault::kFired; }

}  // namespace TalVcs::Testing
