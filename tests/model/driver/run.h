#pragma once

#include "choices.h"

#include <cstdint>
#include <map>
#include <string>

namespace ModelTest {

/// What a run came to.
struct Outcome {
  /// Empty if the library and the model agreed; else the step, the operation and the difference.
  std::string difference;
  /// Operations done, by their names.
  std::map<std::string, std::uint64_t> operations;
  /// True if the run ended early because the model could not know an order.
  bool endedEarly = false;
};

/// Does up to `steps` operations, and compares after each. `print` prints each on standard error.
Outcome Run(Choices& choices, std::uint64_t steps, bool print = false);

}  // namespace ModelTest
