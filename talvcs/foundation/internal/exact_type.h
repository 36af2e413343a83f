#pragma once

#include <typeinfo>

namespace TalUtils {

/// True if the object's class is `Class` itself, so that nobody has overridden its operations.
/// False also where the compiler keeps no type information and nobody can tell: everything then
/// goes the long way, with the same results.
template <class Class, class Interface>
bool IsExactly([[maybe_unused]] const Interface& object) noexcept {
#ifdef __cpp_rtti
  return typeid(object) == typeid(Class);
#else
  return false;
#endif
}

}  // namespace TalUtils
