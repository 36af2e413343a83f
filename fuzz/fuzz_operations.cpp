// Runs a program of operations, decoded from the input, on the library and on the model, which must
// agree after each.

#include "target.h"

#include <tests/model/driver/run.h>

#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::uint64_t kMostSteps = 200;
  ModelTest::ByteChoices choices({data, size});
  const ModelTest::Outcome outcome = ModelTest::Run(choices, kMostSteps);
  if (!outcome.difference.empty()) std::fprintf(stderr, "%s\n", outcome.difference.c_str());
  Fuzz::Require(outcome.difference.empty(), "the library agrees with the model");
  return 0;
}
