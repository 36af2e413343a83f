#pragma once

#include <stdexcept>
#include <string>

namespace Tal {

/// What the program returns to its caller.
enum class ExitCode : int {
  Done = 0,
  Differs = 1,  ///< there are differences, or the operation failed
  Usage = 2,
  Damaged = 3,        ///< the store is damaged or can't be read
  Interrupted = 130,  ///< the user has ended the command; nothing has changed
};

/// Ends a command: the reason, for people, and the exit code.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& reason, ExitCode code = ExitCode::Differs)
      : std::runtime_error(reason), m_code(code) {}

  ExitCode Code() const noexcept { return m_code; }

 private:
  ExitCode m_code;
};

}  // namespace Tal
