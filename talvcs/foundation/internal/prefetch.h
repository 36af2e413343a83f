#pragma once

#include <cstddef>

namespace TalUtils {

/// Asks the processor to fetch the memory at `address`, which will be read soon. Any address is
/// allowed.
inline void Prefetch([[maybe_unused]] const void* address) noexcept {
#if defined(__GNUC__)
  __builtin_prefetch(address);
#endif
}

/// The bytes of a list or a block that are prefetched; the processor fetches the next by itself.
constexpr std::size_t kPrefetchedHead = 256;

/// Prefetches `size` bytes from `address` on. Does nothing for null.
inline void PrefetchRange(const void* address, std::size_t size) noexcept {
  if (address == nullptr) return;
  constexpr std::size_t kCacheLine = 64;
  const auto* bytes = static_cast<const std::byte*>(address);
  for (std::size_t at = 0; at < size; at += kCacheLine) Prefetch(bytes + at);
}

}  // namespace TalUtils
