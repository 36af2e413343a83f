#pragma once

#include <zip.h>

#include <memory>
#include <new>

namespace TalVcs::Kit::Zip {

/// Does what libzip asks a source for. An exception must not pass through libzip, which would lose
/// what it holds.
template <class State>
zip_int64_t CallState(State& state, void* data, zip_uint64_t length,
                      zip_source_cmd_t command) noexcept {
#ifdef __cpp_exceptions
  try {
    return state.Do(data, length, command);
  } catch (const std::bad_alloc&) {
    zip_error_set(&state.error, ZIP_ER_MEMORY, 0);
    return -1;
  }
#else
  return state.Do(data, length, command);
#endif
}

/// Makes a source of libzip, which owns `state`: its function `Do` carries out the commands, and
/// its member `error` is the error of the last one that failed. Throws `std::bad_alloc`.
template <class State>
zip_source_t* MakeStateSource(std::unique_ptr<State> state) {
  const zip_source_callback call = [](void* object, void* data, zip_uint64_t length,
                                      zip_source_cmd_t command) {
    auto* const source = static_cast<State*>(object);
    if (command != ZIP_SOURCE_FREE) return CallState(*source, data, length, command);
    delete source;
    return zip_int64_t{0};
  };
  zip_source_t* source = zip_source_function_create(call, state.get(), nullptr);
  if (source == nullptr) throw std::bad_alloc();
  state.release();
  return source;
}

}  // namespace TalVcs::Kit::Zip
