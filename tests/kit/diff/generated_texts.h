#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// Texts and edits of texts, the same for the same seed.
class GeneratedTexts {
 public:
  explicit GeneratedTexts(unsigned seed) : m_random(seed) {}

  std::size_t Below(std::size_t bound) { return m_random() % bound; }

  /// Returns lines of one letter each, of the first `letters` of the alphabet.
  std::string Text(std::size_t lines, std::size_t letters) {
    std::string text;
    for (std::size_t i = 0; i < lines; ++i) text += Line(letters);
    return text;
  }

  std::string Line(std::size_t letters) { return {static_cast<char>('a' + Below(letters)), '\n'}; }

  /// Returns a line that no other call returns.
  std::string NewLine() { return "line " + std::to_string(++m_lines) + '\n'; }

  std::vector<std::string> NewLines(std::size_t count) {
    std::vector<std::string> lines(count);
    for (std::string& line : lines) line = NewLine();
    return lines;
  }

  /// Replaces up to two lines by up to two new ones at `edits` places.
  std::vector<std::string> Edited(std::vector<std::string> lines, std::size_t edits) {
    for (; edits > 0; --edits) {
      const std::size_t at = Below(lines.size() + 1);
      const std::size_t removed = std::min(Below(3), lines.size() - at);
      const auto first = lines.begin() + static_cast<std::ptrdiff_t>(at);
      const auto place = lines.erase(first, first + static_cast<std::ptrdiff_t>(removed));
      const std::vector<std::string> added = NewLines(Below(3));
      lines.insert(place, added.begin(), added.end());
    }
    return lines;
  }

 private:
  std::mt19937 m_random;
  std::size_t m_lines = 0;
};

inline std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}

}  // namespace TalVcs::Testing
