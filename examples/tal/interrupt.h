#pragma once

namespace Tal {

/// From now on an interrupt (Ctrl-C), a hang-up and a request to end don't end the process: they
/// set a mark. Commands look at it where they can stop, and put back what they changed.
void CatchInterrupts();

bool IsInterrupted() noexcept;

/// Waits until standard input has something to read, or its end. Returns false after an interrupt,
/// also one that came before the wait.
bool WaitForInput();

/// Throws `Failure` with `Interrupted` after an interrupt.
void StopIfInterrupted();
/// Throws it in any case.
[[noreturn]] void ThrowInterrupted();

}  // namespace Tal
