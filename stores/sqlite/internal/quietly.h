#pragma once

#include <new>
#include <utility>

namespace TalVcs::Kit::Sqlite {

/// Calls a function in a destructor, which can't report that memory has run out.
template <class Function>
void Quietly(Function&& function) noexcept {
#ifdef __cpp_exceptions
  try {
    std::forward<Function>(function)();
  } catch (const std::bad_alloc&) {
    // What is left undone is as after the end of the process.
  }
#else
  std::forward<Function>(function)();
#endif
}

}  // namespace TalVcs::Kit::Sqlite
