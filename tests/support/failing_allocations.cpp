#include <tests/support/failing_allocations.h>

#include <atomic>
#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

enum class Fault { None, Armed, Fired };

thread_local Fault fault = Fault::None;
thread_local bool is_lasting = false;
thread_local std::size_t allocations_left = 0;
thread_local std::size_t allocations_made = 0;
std::atomic<std::ptrdiff_t> live_blocks = 0;
std::atomic<std::ptrdiff_t> live_bytes = 0;

std::ptrdiff_t SizeOf([[maybe_unused]] void* memory) noexcept {
#if defined(__GLIBC__)
  return static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
#else
  return 0;
#endif
}

bool HasToFail() noexcept {
  if (fault == Fault::Fired && is_lasting) return true;
  if (fault != Fault::Armed) return false;
  if (allocations_left > 0) {
    --allocations_left;
    return false;
  }
  fault = Fault::Fired;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  ++allocations_made;
  void* memory = HasToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) {
    live_blocks.fetch_add(1, std::memory_order_relaxed);
    live_bytes.fetch_add(SizeOf(memory), std::memory_order_relaxed);
  }
  return memory;
}

void* AllocateOrThrow(std::size_t size) {
  void* memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(void* memory) noexcept {
  if (memory != nullptr) {
    live_blocks.fetch_sub(1, std::memory_order_relaxed);
    live_bytes.fetch_sub(SizeOf(memory), std::memory_order_relaxed);
  }
  std::free(memory);
}

}  // namespace

// All of them, as a sanitizer brings its own for those that are left out. Nothing here asks for
// more than the usual alignment.
void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Free(memory); }

namespace TalVcs::Testing {

FailingAllocation::FailingAllocation(std::size_t passed, Kind kind) noexcept {
  allocations_left = passed;
  is_lasting = kind == Kind::Lasting;
  fault = Fault::Armed;
}

FailingAllocation::~FailingAllocation() { fault = Fault::None; }

bool FailingAllocation::HasFired() const noexcept { return fault == Fault::Fired; }

std::ptrdiff_t LiveBlocks() noexcept { return live_blocks.load(std::memory_order_relaxed); }

#if defined(__GLIBC__)
std::ptrdiff_t LiveBytes() noexcept { return live_bytes.load(std::memory_order_relaxed); }
#endif

std::size_t AllocationsMade() noexcept { return allocations_made; }

}  // namespace TalVcs::Testing
