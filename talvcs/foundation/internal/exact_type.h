#pragma once

#include <typeinfo>

namespace TalUtils {

/// True if the object's class is `Class` itself, so that none of its operations is overridden.
/// Always false without type information: callers then call the virtual functions, with the same
/// results.
template <class Class, class Interface>
bool IsExactly([[maybe_unused]] const Interface& object) noexcept {
#ifdef __cpp_rtti
  return typeid(object) == typeid(Class);
#else
  return false;
#endif
}

}  // namespace TalUtils
