#include "interrupt.h"

#include "failure.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace Tal {
namespace {

volatile sig_atomic_t g_interrupted = 0;

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

void Mark(int) { g_interrupted = 1; }

}  // namespace

void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = Mark;
  // Without SA_RESTART a question to the user ends as well.
  for (const int signal : kSignals) sigaction(signal, &action, nullptr);
}

bool IsInterrupted() noexcept { return g_interrupted != 0; }

// Signals are held back between the look at the mark and the wait, so that none is missed.
bool WaitForInput() {
  sigset_t held;
  sigset_t former;
  sigemptyset(&held);
  for (const int signal : kSignals) sigaddset(&held, signal);
  sigprocmask(SIG_BLOCK, &held, &former);
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (!IsInterrupted() && ppoll(&input, 1, nullptr, &former) < 0 && errno == EINTR) continue;
  sigprocmask(SIG_SETMASK, &former, nullptr);
  return !IsInterrupted();
}

void StopIfInterrupted() {
  if (IsInterrupted()) ThrowInterrupted();
}

void ThrowInterrupted() {
  throw Failure("interrupted; nothing has changed", ExitCode::Interrupted);
}

}  // namespace Tal
