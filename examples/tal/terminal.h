#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tal {

enum class Colour { Plain, Bold, Faint, Red, Green, Yellow, Blue, Magenta, Cyan };

/// How the program writes: data to standard output, talk to standard error, colour and progress on
/// a terminal only.
class Terminal {
 public:
  /// Looks at the two streams and at the environment (NO_COLOR, TERM, the locale).
  Terminal();

  /// Returns `text` in a colour, or as it is where standard output shows none.
  std::string Paint(Colour colour, std::string_view text) const;

  /// Writes a line to standard error.
  void Say(std::string_view text) const;
  /// Writes a line that begins with the program's name to standard error, in red.
  void Complain(std::string_view text) const;

  bool ShowsProgress() const noexcept { return m_showsProgress; }
  /// True if the locale says that text is UTF-8, so that lines can be drawn.
  bool DrawsLines() const noexcept { return m_drawsLines; }

 private:
  bool m_paintsOutput;
  bool m_paintsTalk;
  bool m_showsProgress;
  bool m_drawsLines;
};

/// A line on standard error that counts things and bytes while work goes on. It shows itself after
/// a moment, and only on a terminal, and is wiped at the end.
class Progress {
 public:
  Progress(const Terminal& terminal, std::string label);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// Adds one thing of so many bytes.
  void Count(std::uint64_t bytes);
  /// Sets how far the work is.
  void Set(std::uint64_t count, std::uint64_t bytes);

 private:
  using Clock = std::chrono::steady_clock;

  std::string m_label;
  bool m_enabled;
  bool m_shown = false;
  Clock::time_point m_next;
  std::uint64_t m_count = 0;
  std::uint64_t m_bytes = 0;
};

/// Reads a line from standard input, without its end. Returns nothing at the end of the input and
/// after an interrupt.
std::optional<std::string> ReadAnswer();

/// Returns `text` with control characters and bytes that are no UTF-8 written as escapes, fit for a
/// line of output.
std::string Printable(std::string_view text);

/// Returns "1 file", "2 files", "2 branches".
std::string Plural(std::uint64_t count, std::string_view noun);

}  // namespace Tal
