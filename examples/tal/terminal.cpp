#include "terminal.h"

#include "host.h"
#include "interrupt.h"

#include <kit/text/sizes.h>
#include <kit/text/utf8.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>

namespace Tal {
namespace {

constexpr std::array<const char*, 9> kCodes = {"", "1", "2", "31", "32", "33", "34", "35", "36"};

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

bool LocaleIsUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const std::string value = Environment(name);
    if (value.empty()) continue;
    return value.find("UTF-8") != std::string::npos || value.find("utf8") != std::string::npos;
  }
  return false;
}

/// True for characters that turn the direction of the text around them, or begin a line: what they
/// are in would look like something else.
bool MovesText(std::uint32_t code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

std::string Painted(Colour colour, std::string_view text) {
  if (colour == Colour::Plain) return std::string(text);
  return "\x1b[" + std::string(kCodes[static_cast<std::size_t>(colour)]) + "m" + std::string(text) +
         "\x1b[0m";
}

}  // namespace

Terminal::Terminal() {
  const bool colours = Environment("NO_COLOR").empty() && Environment("TERM") != "dumb";
  m_paintsOutput = colours && isatty(STDOUT_FILENO) != 0;
  m_paintsTalk = colours && isatty(STDERR_FILENO) != 0;
  m_showsProgress = isatty(STDERR_FILENO) != 0;
  m_drawsLines = LocaleIsUtf8();
}

std::string Terminal::Paint(Colour colour, std::string_view text) const {
  return m_paintsOutput ? Painted(colour, text) : std::string(text);
}

void Terminal::Say(std::string_view text) const { std::cerr << text << '\n'; }

void Terminal::Complain(std::string_view text) const {
  std::cerr << (m_paintsTalk ? Painted(Colour::Red, "tal:") : "tal:") << ' ' << text << '\n';
}

Progress::Progress(const Terminal& terminal, std::string label)
    : m_label(std::move(label)),
      m_enabled(terminal.ShowsProgress()),
      m_next(Clock::now() + std::chrono::milliseconds(300)) {}

Progress::~Progress() {
  if (m_shown) std::cerr << "\r\x1b[K" << std::flush;
}

Kit::Progress ShowProgress(const Terminal& terminal) {
  struct State {
    std::string phase;
    std::unique_ptr<Progress> line;
  };
  return [&terminal, state = std::make_shared<State>()](const Kit::ProgressStep& step) {
    if (!state->line || state->phase != step.phase) {
      state->phase = step.phase;
      state->line.reset();
      state->line = std::make_unique<Progress>(terminal, state->phase);
    }
    state->line->Set(step.done, step.sizeBytes);
    return !IsInterrupted();
  };
}

void Progress::Count(std::uint64_t bytes) { Set(m_count + 1, m_bytes + bytes); }

void Progress::Set(std::uint64_t count, std::uint64_t bytes) {
  m_count = count;
  m_bytes = bytes;
  if (!m_enabled) return;
  const Clock::time_point now = Clock::now();
  if (now < m_next) return;
  m_next = now + std::chrono::milliseconds(100);
  m_shown = true;
  std::cerr << '\r' << m_label << ": " << m_count << ", " << Kit::FormatSize(m_bytes) << "\x1b[K"
            << std::flush;
}

// A stream would begin to read again after a signal.
std::optional<std::string> ReadAnswer() {
  std::string line;
  for (;;) {
    char character = 0;
    if (!WaitForInput() || read(STDIN_FILENO, &character, 1) <= 0) return std::nullopt;
    if (character == '\n') return line;
    line += character;
  }
}

std::string Printable(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const Kit::Utf8Character character = Kit::DecodeUtf8(text, at);
    const std::string_view bytes = text.substr(at, character.sizeBytes);
    at += character.sizeBytes;
    const bool control = character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0);
    if (character.isValid && !control && !MovesText(character.code)) {
      result += bytes;
      continue;
    }
    for (const char byte : bytes) {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(byte));
      result += escape.data();
    }
  }
  return result;
}

std::string Plural(std::uint64_t count, std::string_view noun) {
  const char* const ending = count == 1 ? "" : noun.ends_with("ch") ? "es" : "s";
  return std::to_string(count) + " " + std::string(noun) + ending;
}

}  // namespace Tal
