#include <kit/diff/word_diff.h>

#include <algorithm>

namespace TalVcs::Kit {
namespace {

// Lines are short, so that a bound is needed for one-line documents only.
constexpr LineDiffOptions kWordOptions{1'000'000};

enum class PieceKind { Word, Blanks, Mark };

PieceKind KindOf(char character) {
  const bool is_letter =
      (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
  const bool is_digit = character >= '0' && character <= '9';
  const bool is_ascii = (static_cast<unsigned char>(character) & 0x80U) == 0;
  if (is_letter || is_digit || character == '_' || !is_ascii) return PieceKind::Word;
  return character == ' ' || character == '\t' ? PieceKind::Blanks : PieceKind::Mark;
}

std::vector<std::string_view> SplitWords(std::string_view line) {
  std::vector<std::string_view> pieces;
  while (!line.empty()) {
    const PieceKind kind = KindOf(line.front());
    std::size_t size = 1;
    while (kind != PieceKind::Mark && size < line.size() && KindOf(line[size]) == kind) ++size;
    pieces.push_back(line.substr(0, size));
    line.remove_prefix(size);
  }
  return pieces;
}

/// Returns the range of these pieces of a line.
TextRange RangeOf(std::string_view line, std::span<const std::string_view> pieces) {
  const auto offset = static_cast<std::size_t>(pieces.front().data() - line.data());
  const char* end = pieces.back().data() + pieces.back().size();
  return {offset, static_cast<std::size_t>(end - pieces.front().data())};
}

bool HasWord(std::span<const std::string_view> pieces) {
  return std::any_of(pieces.begin(), pieces.end(), [](std::string_view piece) {
    return KindOf(piece.front()) == PieceKind::Word;
  });
}

/// Two lines that are each other's counterparts.
struct WordComparison {
  ChangedWords changed;
  bool hasCommonWord = false;
};

WordComparison CompareWords(std::string_view before, std::string_view after) {
  const std::vector<std::string_view> old_pieces = SplitWords(before);
  const std::vector<std::string_view> new_pieces = SplitWords(after);
  const std::span<const std::string_view> old_span(old_pieces);
  const std::span<const std::string_view> new_span(new_pieces);
  WordComparison result;
  std::size_t kept = 0;
  for (const LineChange& change : FindLineChanges(old_pieces, new_pieces, kWordOptions).changes) {
    result.hasCommonWord |= HasWord(old_span.subspan(kept, change.beforeFirst - kept));
    kept = change.beforeFirst + change.beforeCount;
    if (change.beforeCount > 0) {
      result.changed.before.push_back(
          RangeOf(before, old_span.subspan(change.beforeFirst, change.beforeCount)));
    }
    if (change.afterCount > 0) {
      result.changed.after.push_back(
          RangeOf(after, new_span.subspan(change.afterFirst, change.afterCount)));
    }
  }
  result.hasCommonWord |= HasWord(old_span.subspan(kept));
  return result;
}

std::size_t CountFrom(std::span<const DiffLine> lines, std::size_t first, LineKind kind) {
  std::size_t end = first;
  while (end < lines.size() && lines[end].kind == kind) ++end;
  return end - first;
}

}  // namespace

ChangedWords FindChangedWords(std::string_view before, std::string_view after) {
  return CompareWords(before, after).changed;
}

std::vector<MarkedLine> MarkChangedWords(std::span<const DiffLine> lines) {
  std::vector<MarkedLine> marked;
  marked.reserve(lines.size());
  for (const DiffLine& line : lines) marked.push_back({line.kind, line.text, {}});
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t removed = CountFrom(lines, at, LineKind::Removed);
    const std::size_t added = CountFrom(lines, at + removed, LineKind::Added);
    for (std::size_t i = at; i < at + std::min(removed, added); ++i) {
      MarkedLine& old_line = marked[i];
      MarkedLine& new_line = marked[i + removed];
      WordComparison words = CompareWords(old_line.text, new_line.text);
      if (!words.hasCommonWord) continue;
      old_line.changed = std::move(words.changed.before);
      new_line.changed = std::move(words.changed.after);
    }
    at += std::max<std::size_t>(removed + added, 1);
  }
  return marked;
}

}  // namespace TalVcs::Kit
