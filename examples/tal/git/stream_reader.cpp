// stream := (line LF | data)*
// data   := "data " count LF byte* LF?                 count: the number of bytes
//         | "data <<" delimiter LF (line LF)* delimiter LF

#include "stream_reader.h"

#include "../failure.h"
#include "../terminal.h"

#include <algorithm>
#include <charconv>

namespace Tal {

std::string Shown(std::string_view text) {
  constexpr std::size_t kMost = 80;
  return Printable(text.substr(0, kMost)) + (text.size() > kMost ? "..." : "");
}

std::optional<std::uint64_t> ParseNumber(std::string_view digits) {
  std::uint64_t number = 0;
  const char* end = digits.data() + digits.size();
  const auto [at, error] = std::from_chars(digits.data(), end, number);
  if (digits.empty() || error != std::errc() || at != end) return std::nullopt;
  return number;
}

const std::string* GitStreamReader::Peek() {
  if (m_line) return &*m_line;
  std::string line;
  if (!std::getline(m_in, line)) {
    if (m_in.bad()) Fail("it can't be read further");
    return nullptr;
  }
  ++m_lineNumber;
  m_line = std::move(line);
  return &*m_line;
}

std::optional<std::string> GitStreamReader::Take(std::string_view word) {
  const std::string* line = Peek();
  if (line == nullptr || !line->starts_with(word)) return std::nullopt;
  std::string rest = line->substr(word.size());
  Next();
  return rest;
}

std::string GitStreamReader::TakeData() {
  const std::optional<std::string> header = Take("data ");
  if (!header) Fail("a data block is missing");
  std::string data = header->starts_with("<<") ? TakeUntil(std::string_view(*header).substr(2))
                                               : TakeCounted(*header);
  if (m_in.peek() == '\n') {
    m_in.get();
    ++m_lineNumber;
  }
  return data;
}

std::string GitStreamReader::TakeCounted(std::string_view digits) {
  constexpr std::uint64_t kPiece = 1 << 20;
  const std::optional<std::uint64_t> count = ParseNumber(digits);
  if (!count) Fail("\"" + Shown(digits) + "\" is no size of data");
  std::string data;
  while (data.size() < *count) {
    const std::size_t before = data.size();
    data.resize(before + std::min(kPiece, *count - before));
    m_in.read(data.data() + before, static_cast<std::streamsize>(data.size() - before));
    if (static_cast<std::size_t>(m_in.gcount()) != data.size() - before) {
      Fail("the stream ends within data of " + std::to_string(*count) + " bytes");
    }
  }
  m_lineNumber += static_cast<std::uint64_t>(std::ranges::count(data, '\n'));
  return data;
}

std::string GitStreamReader::TakeUntil(std::string_view delimiter) {
  std::string data;
  for (;;) {
    const std::string* line = Peek();
    if (line == nullptr) Fail("the stream ends before \"" + Shown(delimiter) + "\"");
    const bool is_end = *line == delimiter;
    if (!is_end) data += *line + '\n';
    Next();
    if (is_end) return data;
  }
}

void GitStreamReader::Fail(const std::string& reason) const {
  throw Failure("cannot read the git stream, line " + std::to_string(m_lineNumber) + ": " + reason);
}

}  // namespace Tal
