#pragma once

#include <cstddef>

namespace TalVcs::Testing {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TALVCS_TESTS_ARE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TALVCS_TESTS_ARE_SANITIZED 1
#endif
#endif

/// Returns `size`, or a twentieth of it under sanitizers, which make every step dearer.
constexpr std::size_t Scaled(std::size_t size) {
#ifdef TALVCS_TESTS_ARE_SANITIZED
  return size / 20;
#else
  return size;
#endif
}

}  // namespace TalVcs::Testing
