#pragma once

#include "session.h"

#include <cstdint>

namespace Tal {

/// A number of files and the bytes of their contents.
struct ContentSize {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

/// What the files of all versions come to.
struct ContentSizes {
  ContentSize apart;   ///< if each version had its own copy of its files
  ContentSize shared;  ///< as they are stored, each content once
};

/// Adds up the files of all versions. Reads each folder of the history once, and no file.
ContentSizes MeasureContents(Session& session);

}  // namespace Tal
