#pragma once

#include <cstddef>

namespace TalUtils {

/// Asks the processor to fetch the memory at `address`, which soon will be read. Any address is
/// fine.
inline void Prefetch([[maybe_unused]] const void* address) noexcept {
#if defined(__GNUC__)
  __builtin_prefetch(address);
#endif
}

/// How much of a list or a block is worth asking for; the processor goes on by itself.
constexpr std::size_t kPrefetchedHead = 256;

/// Asks for `size` bytes from `address` on; for none of a null one.
inline void PrefetchRange(const void* address, std::size_t size) noexcept {
  if (address == nullptr) return;
  constexpr std::size_t kCacheLine = 64;
  const auto* bytes = static_cast<const std::byte*>(address);
  for (std::size_t at = 0; at < size; at += kCacheLine) Prefetch(bytes + at);
}

}  // namespace TalUtils
