#pragma once

#include <talvcs/export.h>

/// The version of the headers, for conditional compilation.
#define TALVCS_VERSION_MAJOR 1
#define TALVCS_VERSION_MINOR 0
#define TALVCS_VERSION_PATCH 0

namespace TalVcs {

/// A version of the library as three numbers.
struct Version {
  int major_number;  ///< Changes with the binary interface.
  int minor_number;  ///< Changes with additions.
  int patch_number;  ///< Changes with corrections.
};

/// Returns the version of the library that runs, which can be newer than the headers.
TALVCS_API Version GetVersion() noexcept;

/// Returns the same as a terminated text such as "1.0.0". The text lives as long as the library.
TALVCS_API const char* GetVersionText() noexcept;

}  // namespace TalVcs
