#pragma once

namespace TalUtils {

/// Asks the processor to fetch the memory at `address`, which soon will be read. Any address is
/// fine.
inline void Prefetch([[maybe_unused]] const void* address) noexcept {
#if defined(__GNUC__)
  __builtin_prefetch(address);
#endif
}

}  // namespace TalUtils
