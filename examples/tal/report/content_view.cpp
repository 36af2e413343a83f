#include "content_view.h"

#include "../terminal.h"
#include "hex_view.h"
#include "html_text.h"

#include <kit/diff/line_diff.h>
#include <kit/diff/unified_diff.h>
#include <kit/diff/word_diff.h>
#include <kit/text/base64.h>
#include <kit/text/sizes.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace Tal {
namespace {

using TalVcs::Kit::DiffLine;
using TalVcs::Kit::Hunk;
using TalVcs::Kit::LineKind;
using TalVcs::Kit::MarkedLine;
using TalVcs::Kit::TextRange;

constexpr std::size_t kMostLines = 1500;      // of one comparison
constexpr std::size_t kMostCharacters = 600;  // of one line

/// Returns a line without its end, with the changed parts in `mark` elements.
std::string MarkedText(const MarkedLine& line) {
  std::string_view text = line.text;
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::size_t most = std::min(text.size(), kMostCharacters);
  while (most < text.size() && most > 0 &&
         (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80U)
    --most;
  const bool is_cut = most < text.size();
  text = text.substr(0, most);
  std::string html;
  std::size_t at = 0;
  for (const TextRange& range : line.changed) {
    const std::size_t begin = std::min(range.offset, text.size());
    const std::size_t end = std::min(range.offset + range.sizeBytes, text.size());
    if (begin >= end) continue;
    html += HtmlText(text.substr(at, begin - at));
    html += "<mark>" + HtmlText(text.substr(begin, end - begin)) + "</mark>";
    at = end;
  }
  html += HtmlText(text.substr(at));
  if (is_cut) html += "<span class=\"u\">line cut</span>";
  if (!line.text.ends_with('\n')) html += "<span class=\"u\">no line end</span>";
  return html;
}

/// Writes the rows of a table with the first text on the left and the second on the right.
class SideBySide {
 public:
  explicit SideBySide(std::span<const DiffLine> lines)
      : m_lines(lines), m_marked(TalVcs::Kit::MarkChangedWords(lines)) {}

  std::string Draw() {
    m_html =
        "<table class=\"diff\"><colgroup><col class=\"n\"><col><col class=\"n\"><col>"
        "</colgroup><tbody>\n";
    for (const Hunk& hunk : TalVcs::Kit::FindHunks(m_lines)) {
      if (m_rows >= kMostLines) {
        m_html +=
            "<tr class=\"gap\"><td colspan=\"4\">The rest of this comparison is left "
            "out.</td></tr>\n";
        break;
      }
      DrawHunk(hunk);
    }
    return m_html + "</tbody></table>\n";
  }

 private:
  void DrawHunk(const Hunk& hunk) {
    m_before = hunk.beforeLine;
    m_after = hunk.afterLine;
    m_html +=
        "<tr class=\"gap\"><td colspan=\"4\">" + TalVcs::Kit::HunkHeader(hunk) + "</td></tr>\n";
    const std::size_t end = hunk.first + hunk.count;
    for (std::size_t at = hunk.first; at < end && m_rows < kMostLines;) {
      if (m_lines[at].kind == LineKind::Kept) {
        DrawRow(&m_marked[at], &m_marked[at]);
        ++at;
        continue;
      }
      const std::size_t removed = CountOf(LineKind::Removed, at, end);
      const std::size_t added = CountOf(LineKind::Added, at + removed, end);
      for (std::size_t i = 0; i < std::max(removed, added); ++i) {
        DrawRow(i < removed ? &m_marked[at + i] : nullptr,
                i < added ? &m_marked[at + removed + i] : nullptr);
      }
      at += removed + added;
    }
  }

  std::size_t CountOf(LineKind kind, std::size_t at, std::size_t end) const {
    std::size_t count = 0;
    while (at + count < end && m_lines[at + count].kind == kind) ++count;
    return count;
  }

  void DrawRow(const MarkedLine* before, const MarkedLine* after) {
    ++m_rows;
    m_html += "<tr>";
    DrawSide(before, m_before, "del");
    DrawSide(after, m_after, "add");
    m_html += "</tr>\n";
  }

  void DrawSide(const MarkedLine* line, std::size_t& number, std::string_view style) {
    if (line == nullptr) {
      m_html += "<td class=\"n\"></td><td class=\"none\"></td>";
      return;
    }
    m_html += "<td class=\"n\">" + std::to_string(number++) + "</td><td";
    if (line->kind != LineKind::Kept) m_html += " class=\"" + std::string(style) + '"';
    m_html += '>' + MarkedText(*line) + "</td>";
  }

  std::span<const DiffLine> m_lines;
  std::vector<MarkedLine> m_marked;
  std::size_t m_before = 1;
  std::size_t m_after = 1;
  std::size_t m_rows = 0;
  std::string m_html;
};

bool IsText(const ContentPair& contents) {
  return !TalVcs::Kit::IsBinary(contents.before.value_or("")) &&
         !TalVcs::Kit::IsBinary(contents.after.value_or(""));
}

std::string Figure(const std::optional<std::string_view>& content, const char* caption) {
  if (!content) return {};
  std::string html = "<figure><figcaption>" + std::string(caption) + ", " +
                     TalVcs::Kit::FormatSize(content->size()) + "</figcaption>";
  if (ImageType(*content).empty()) return html + HexDump(*content, *content) + "</figure>\n";
  return html + "<img alt=\"" + caption + "\" src=\"" + ImageAddress(*content) + "\"></figure>\n";
}

bool IsImage(const std::optional<std::string_view>& content) {
  return content && !ImageType(*content).empty();
}

}  // namespace

std::string_view ImageType(std::string_view content) noexcept {
  if (content.starts_with("\x89PNG\r\n\x1A\n")) return "image/png";
  if (content.starts_with("\xFF\xD8\xFF")) return "image/jpeg";
  if (content.starts_with("GIF87a") || content.starts_with("GIF89a")) return "image/gif";
  if (content.starts_with("RIFF") && content.substr(0, 12).ends_with("WEBP")) return "image/webp";
  return {};
}

std::string ImageAddress(std::string_view content) {
  return "data:" + std::string(ImageType(content)) + ";base64," +
         TalVcs::Kit::EncodeBase64(content);
}

std::string CompareContents(const ContentPair& contents) {
  if (IsImage(contents.before) || IsImage(contents.after)) {
    return "<div class=\"pair\">" + Figure(contents.before, "before") +
           Figure(contents.after, "after") + "</div>\n";
  }
  const std::string_view before = contents.before.value_or("");
  const std::string_view after = contents.after.value_or("");
  if (!IsText(contents)) {
    return "<div class=\"pair\">" + (contents.before ? HexDump(before, after) : std::string()) +
           (contents.after ? HexDump(after, before) : std::string()) + "</div>\n";
  }
  if (before.empty() && after.empty()) return "<p class=\"quiet\">The file is empty.</p>\n";
  return SideBySide(TalVcs::Kit::DiffLines(before, after)).Draw();
}

std::string CountChanges(const ContentPair& contents) {
  const std::string_view before = contents.before.value_or("");
  const std::string_view after = contents.after.value_or("");
  if (!IsText(contents)) {
    if (!contents.before) return TalVcs::Kit::FormatSize(after.size());
    if (!contents.after) return TalVcs::Kit::FormatSize(before.size());
    return TalVcs::Kit::FormatSize(before.size()) + " \xE2\x86\x92 " +
           TalVcs::Kit::FormatSize(after.size());
  }
  std::uint64_t removed = 0;
  std::uint64_t added = 0;
  for (const auto& change :
       TalVcs::Kit::FindLineChanges(TalVcs::Kit::SplitLines(before), TalVcs::Kit::SplitLines(after))
           .changes) {
    removed += change.beforeCount;
    added += change.afterCount;
  }
  return "+" + std::to_string(added) + " \xE2\x88\x92" + std::to_string(removed);
}

}  // namespace Tal
