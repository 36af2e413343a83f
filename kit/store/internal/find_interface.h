#pragma once

#include <kit/store/object_store.h>

namespace TalVcs::Kit {

/// Returns the interface of a store that stores may have beside `IObjectStore`, or null.
template <class Interface>
Interface* FindInterface(IObjectStore& store) noexcept {
#ifdef __cpp_rtti
  return dynamic_cast<Interface*>(&store);
#else
  // Without type information no store is known to have it.
  static_cast<void>(store);
  return nullptr;
#endif
}

}  // namespace TalVcs::Kit
