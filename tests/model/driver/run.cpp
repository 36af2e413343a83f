#include "run.h"

#include "world.h"

#include <iostream>

namespace ModelTest {

Outcome Run(Choices& choices, std::uint64_t steps, bool print) {
  Outcome outcome;
  World world(choices);
  for (std::uint64_t step = 1; step <= steps && !choices.IsExhausted(); ++step) {
    try {
      world.Step();
      if (print) std::cerr << step << ": " << world.GetOperation() << '\n';
      if (world.IsOrderUnknown()) {
        outcome.endedEarly = true;
        return outcome;
      }
      world.Check();
    } catch (const Mismatch& mismatch) {
      outcome.difference =
          "step " + std::to_string(step) + ", " + world.GetOperation() + ": " + mismatch.what();
      return outcome;
    }
    ++outcome.operations[world.GetOperation().substr(0, world.GetOperation().find(' '))];
  }
  return outcome;
}

}  // namespace ModelTest
