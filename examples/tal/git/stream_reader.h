#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace Tal {

/// Reads the lines and data blocks of a stream in the format of `git fast-import`.
///
/// Memory follows the bytes that the stream has, never a number that it claims.
class GitStreamReader {
 public:
  /// The stream must outlive the reader.
  explicit GitStreamReader(std::istream& in) : m_in(in) {}

  /// Returns the next line without its end, or null at the end of the stream. `Next` goes on; the
  /// line is valid until then.
  const std::string* Peek();
  void Next() noexcept { m_line.reset(); }

  /// If the next line begins with `word`, goes on and returns what follows the word.
  std::optional<std::string> Take(std::string_view word);

  /// Reads a data block: its line, its bytes and the line end that may follow. Throws `Failure` if
  /// there is none, or if the stream ends within it.
  std::string TakeData();

  /// Throws `Failure` with `reason` and the number of the line that was read last.
  [[noreturn]] void Fail(const std::string& reason) const;

 private:
  std::string TakeCounted(std::string_view digits);
  std::string TakeUntil(std::string_view delimiter);

  std::istream& m_in;
  std::optional<std::string> m_line;
  std::uint64_t m_lineNumber = 0;
};

/// Returns the beginning of a text of a stream, fit for a message.
std::string Shown(std::string_view text);

/// Returns the number that the digits say, or none if there are other characters, no digit, or more
/// than 64 bits.
std::optional<std::uint64_t> ParseNumber(std::string_view digits);

}  // namespace Tal
