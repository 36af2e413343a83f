#include "interrupt.h"

#include "failure.h"

#include <signal.h>

namespace Tal {
namespace {

volatile sig_atomic_t g_interrupted = 0;

void Mark(int) { g_interrupted = 1; }

}  // namespace

void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = Mark;
  // Without SA_RESTART a question to the user ends as well.
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool IsInterrupted() noexcept { return g_interrupted != 0; }

void StopIfInterrupted() {
  if (IsInterrupted()) throw Failure("interrupted; nothing has changed", ExitCode::Interrupted);
}

}  // namespace Tal
