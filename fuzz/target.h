#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// What a fuzz target is: does something with one input and returns 0. It ends the program where
/// the library does wrong. The fuzzer calls it, and so does the program that replays inputs.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

/// Ends the program, which a fuzzer takes for a crash, unless `holds`.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace Fuzz
