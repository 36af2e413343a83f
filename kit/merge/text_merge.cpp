#include <kit/merge/text_merge.h>

#include <algorithm>
#include <optional>
#include <span>

// Both sides are compared with the root. Changes of the two sides that overlap or touch in the root
// make one chunk, with everything between them:
//
//   root    a  b  c  d  e  f        left changed c d, right changed d e:
//   left    a  b [X  Y] e  f        chunk of the root:  c d e
//   right   a  b  c [U  V] f        of the left side X Y e, of the right side c U V
//
// A chunk is decided by its three texts alone. Lines between chunks are the same in all three.

namespace TalVcs::Kit {
namespace {

using Lines = std::vector<std::string_view>;

LineRange Between(std::size_t first, std::size_t end) { return {first, end - first}; }

std::span<const std::string_view> Cut(const Lines& lines, const LineRange& range) {
  return std::span(lines).subspan(range.first, range.count);
}

std::string Join(std::span<const std::string_view> lines) {
  std::string text;
  for (const std::string_view line : lines) text += line;
  return text;
}

/// Returns a marker line without its end.
std::string MarkerOf(const TextMergeOptions& options, char character, const std::string& label) {
  return std::string(options.markerSize, character) + (label.empty() ? "" : ' ' + label);
}

/// The changes of one side, taken in the order of the root's lines.
class SideChanges {
 public:
  SideChanges(const Lines& root, const Lines& side, const LineDiffOptions& options)
      : m_changes(FindLineChanges(root, side, options).changes) {}

  const LineChange* Next() const {
    return m_next < m_changes.size() ? &m_changes[m_next] : nullptr;
  }
  /// Takes the next change if it touches the root's lines that end at `end`.
  bool TakeUpTo(std::size_t& end) {
    const LineChange* change = Next();
    if (change == nullptr || change->beforeFirst > end) return false;
    end = std::max(end, change->beforeFirst + change->beforeCount);
    ++m_next;
    m_shift = static_cast<std::ptrdiff_t>(change->afterFirst + change->afterCount) -
              static_cast<std::ptrdiff_t>(change->beforeFirst + change->beforeCount);
    return true;
  }
  /// Returns the line of this side for a line of the root that follows all changes taken so far.
  std::size_t LineFor(std::size_t rootLine) const {
    return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(rootLine) + m_shift);
  }

 private:
  std::vector<LineChange> m_changes;
  std::size_t m_next = 0;
  std::ptrdiff_t m_shift = 0;
};

class TextMerger {
 public:
  TextMerger(std::string_view root, std::string_view left, std::string_view right,
             const TextMergeOptions& options)
      : m_options(options),
        m_root(SplitLines(root)),
        m_left(SplitLines(left)),
        m_right(SplitLines(right)) {}

  TextMerge Run() {
    SideChanges left(m_root, m_left, m_options.lines);
    SideChanges right(m_root, m_right, m_options.lines);
    std::size_t merged = 0;  // lines of the root
    while (left.Next() != nullptr || right.Next() != nullptr) {
      std::size_t begin = m_root.size();
      if (left.Next() != nullptr) begin = left.Next()->beforeFirst;
      if (right.Next() != nullptr) begin = std::min(begin, right.Next()->beforeFirst);
      Append(Cut(m_root, Between(merged, begin)));
      const std::size_t left_begin = left.LineFor(begin);
      const std::size_t right_begin = right.LineFor(begin);
      std::size_t end = begin;
      bool has_left = false;
      bool has_right = false;
      for (bool grows = true; grows;) {
        const bool took_left = left.TakeUpTo(end);
        const bool took_right = right.TakeUpTo(end);
        has_left |= took_left;
        has_right |= took_right;
        grows = took_left || took_right;
      }
      MergeChunk({Between(begin, end), Between(left_begin, left.LineFor(end)),
                  Between(right_begin, right.LineFor(end))},
                 has_left, has_right);
      merged = end;
    }
    Append(Cut(m_root, Between(merged, m_root.size())));
    return std::move(m_merge);
  }

 private:
  struct Chunk {
    LineRange root;
    LineRange left;
    LineRange right;
  };

  void Append(std::span<const std::string_view> lines) {
    for (const std::string_view line : lines) m_merge.text += line;
  }

  void MergeChunk(const Chunk& chunk, bool hasLeft, bool hasRight) {
    const auto left = Cut(m_left, chunk.left);
    const auto right = Cut(m_right, chunk.right);
    if (!hasRight || std::equal(left.begin(), left.end(), right.begin(), right.end())) {
      Append(left);
    } else if (!hasLeft) {
      Append(right);
    } else if (m_options.conflictText == ConflictText::MarkersWithRoot) {
      AppendConflict(chunk);
    } else {
      AppendTrimmed(chunk);
    }
  }

  // Takes the lines at both ends that the two sides have in common out of the conflict.
  void AppendTrimmed(Chunk chunk) {
    const auto left = Cut(m_left, chunk.left);
    const auto right = Cut(m_right, chunk.right);
    const std::size_t shorter = std::min(left.size(), right.size());
    std::size_t head = 0;
    while (head < shorter && left[head] == right[head]) ++head;
    std::size_t tail = 0;
    while (tail < shorter - head && left[left.size() - 1 - tail] == right[right.size() - 1 - tail])
      ++tail;
    TrimRoot(chunk.root, left.first(head), left.last(tail));
    chunk.left = {chunk.left.first + head, chunk.left.count - head - tail};
    chunk.right = {chunk.right.first + head, chunk.right.count - head - tail};
    Append(left.first(head));
    AppendConflict(chunk);
    Append(left.last(tail));
  }

  // Takes lines that both sides kept at the ends out of the root's lines too.
  void TrimRoot(LineRange& root, std::span<const std::string_view> head,
                std::span<const std::string_view> tail) const {
    for (const std::string_view line : head) {
      if (root.count == 0 || m_root[root.first] != line) break;
      ++root.first;
      --root.count;
    }
    for (std::size_t i = tail.size(); i > 0; --i) {
      if (root.count == 0 || m_root[root.first + root.count - 1] != tail[i - 1]) break;
      --root.count;
    }
  }

  void AppendConflict(const Chunk& chunk) {
    const auto root = Cut(m_root, chunk.root);
    const auto left = Cut(m_left, chunk.left);
    const auto right = Cut(m_right, chunk.right);
    switch (m_options.conflictText) {
      case ConflictText::Left:
        Append(left);
        break;
      case ConflictText::Right:
        Append(right);
        break;
      case ConflictText::Root:
        Append(root);
        break;
      case ConflictText::Both:
        Append(left);
        if (!right.empty()) EndLine(LineEndOf(chunk));
        Append(right);
        break;
      case ConflictText::Markers:
      case ConflictText::MarkersWithRoot:
        AppendMarked(chunk);
        break;
    }
    m_merge.conflicts.push_back(
        {Join(root), Join(left), Join(right), chunk.root, chunk.left, chunk.right});
  }

  void AppendMarked(const Chunk& chunk) {
    const std::string_view end = LineEndOf(chunk);
    const auto marker = [&](char character, const std::string& label) {
      EndLine(end);
      m_merge.text += MarkerOf(m_options, character, label);
      m_merge.text += end;
    };
    marker('<', m_options.leftLabel);
    Append(Cut(m_left, chunk.left));
    if (m_options.conflictText == ConflictText::MarkersWithRoot) {
      marker('|', m_options.rootLabel);
      Append(Cut(m_root, chunk.root));
    }
    marker('=', "");
    Append(Cut(m_right, chunk.right));
    marker('>', m_options.rightLabel);
  }

  void EndLine(std::string_view end) {
    if (!m_merge.text.empty() && !m_merge.text.ends_with('\n')) m_merge.text += end;
  }

  // Returns the line end of the text around a conflict: that of the line before it, else of its own
  // first line that has one.
  std::string_view LineEndOf(const Chunk& chunk) const {
    const auto end_of = [](std::string_view line) -> std::string_view {
      return line.ends_with("\r\n") ? "\r\n" : "\n";
    };
    if (m_merge.text.ends_with('\n')) return end_of(m_merge.text);
    for (const auto& lines : {Cut(m_left, chunk.left), Cut(m_right, chunk.right)}) {
      if (!lines.empty() && lines.front().ends_with('\n')) return end_of(lines.front());
    }
    return "\n";
  }

  const TextMergeOptions& m_options;
  Lines m_root;
  Lines m_left;
  Lines m_right;
  TextMerge m_merge;
};

}  // namespace

Result<TextMerge> MergeText(std::string_view root, std::string_view left, std::string_view right,
                            const TextMergeOptions& options) {
  if (left == right || right == root) return TextMerge{std::string(left), {}};
  if (left == root) return TextMerge{std::string(right), {}};
  if (IsBinary(root) || IsBinary(left) || IsBinary(right)) {
    Error error;
    error.code = ErrorCode::Unsupported;
    error.message = "cannot merge the content line by line: it is binary";
    return error;
  }
  return TextMerger(root, left, right, options).Run();
}

bool HasConflictMarkers(std::string_view text, const TextMergeOptions& options) {
  const std::string marker = MarkerOf(options, '<', options.leftLabel);
  return text.starts_with(marker) || text.find('\n' + marker) != text.npos;
}

}  // namespace TalVcs::Kit
