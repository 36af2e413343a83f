#pragma once

#include <new>
#include <utility>

namespace TalVcs::Kit {

/// Calls a function where nothing can report that memory has run out, as in a destructor: a
/// `std::bad_alloc` ends the function and nothing else. What the function leaves undone then must
/// be harmless, as if the process had ended. Any other exception ends the program.
template <class Function>
void Quietly(Function&& function) noexcept {
#ifdef __cpp_exceptions
  try {
    std::forward<Function>(function)();
  } catch (const std::bad_alloc&) {
    // The caller goes on.
  }
#else
  std::forward<Function>(function)();
#endif
}

}  // namespace TalVcs::Kit
