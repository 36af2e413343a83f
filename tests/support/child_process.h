#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

/// Work that a test does in a process of its own.
namespace TalVcs::Testing {

/// Starts a child process that runs `act` and exits with its result.
inline pid_t StartChild(const std::function<int()>& act) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(act());
  return child;
}

/// Waits for the end of a child process. Returns its exit code, -1 if it did not exit by itself.
inline int ExitCodeOf(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

/// Runs `act` in a child process and returns its exit code.
inline int InChild(const std::function<int()>& act) { return ExitCodeOf(StartChild(act)); }

/// Makes this process an ordinary user's if it is the superuser's, to whom nothing is forbidden.
/// Returns false if the system doesn't allow that.
inline bool BecomeOrdinaryUser() {
  constexpr uid_t kNobody = 65534;
  return ::geteuid() != 0 || ::setuid(kNobody) == 0;
}

}  // namespace TalVcs::Testing
