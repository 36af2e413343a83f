#include <kit/diff/internal/slide_changes.h>

namespace TalVcs::Kit {
namespace {

using Lines = std::span<const std::string_view>;

/// Slides the changes of one text. Gap g is between the kept lines g - 1 and g. A slide moves a
/// change across one kept line, by matching another equal line of this text:
///
///     x [a b] a b    ->    x a [b a] b    ->    x a b [a b]
class Slider {
 public:
  using Side = std::size_t LineMatch::*;

  Slider(Lines lines, Side side, std::size_t otherSize, Side other, std::vector<LineMatch>& kept)
      : m_lines(lines), m_side(side), m_otherSize(otherSize), m_other(other), m_kept(kept) {
    // Each merge of two changes can repeat the slides of the first one.
    m_slidesLeft = 64 * (lines.size() + 1);
  }

  void Run() {
    for (std::size_t gap = 0; gap <= m_kept.size(); ++gap) {
      if (Size(gap) > 0) gap = Slide(gap);
    }
  }

 private:
  std::size_t Begin(std::size_t gap) const { return gap == 0 ? 0 : m_kept[gap - 1].*m_side + 1; }
  std::size_t End(std::size_t gap) const {
    return gap == m_kept.size() ? m_lines.size() : m_kept[gap].*m_side;
  }
  std::size_t Size(std::size_t gap) const { return End(gap) - Begin(gap); }
  bool OtherChanges(std::size_t gap) const {
    const std::size_t begin = gap == 0 ? 0 : m_kept[gap - 1].*m_other + 1;
    const std::size_t end = gap == m_kept.size() ? m_otherSize : m_kept[gap].*m_other;
    return begin < end;
  }

  bool SlideUp(std::size_t& gap) {
    if (gap == 0 || m_slidesLeft == 0) return false;
    const std::size_t last = End(gap) - 1;
    if (m_lines[m_kept[gap - 1].*m_side] != m_lines[last]) return false;
    m_kept[--gap].*m_side = last;
    --m_slidesLeft;
    return true;
  }
  bool SlideDown(std::size_t& gap) {
    if (gap == m_kept.size() || m_slidesLeft == 0) return false;
    const std::size_t first = Begin(gap);
    if (m_lines[first] != m_lines[End(gap)]) return false;
    m_kept[gap++].*m_side = first;
    --m_slidesLeft;
    return true;
  }

  // Slides the change of a gap up and then down, again whenever it met another change on its way.
  // Returns the gap where it stays.
  std::size_t Slide(std::size_t gap) {
    std::size_t size = 0;
    std::size_t matching = 0;
    bool has_matching = false;
    do {
      size = Size(gap);
      while (SlideUp(gap)) {
      }
      has_matching = OtherChanges(gap);
      matching = gap;
      while (SlideDown(gap)) {
        if (!OtherChanges(gap)) continue;
        has_matching = true;
        matching = gap;
      }
    } while (Size(gap) != size);
    while (has_matching && gap > matching && SlideUp(gap)) {
    }
    return gap;
  }

  Lines m_lines;
  Side m_side;
  std::size_t m_otherSize;
  Side m_other;
  std::vector<LineMatch>& m_kept;
  std::size_t m_slidesLeft;
};

}  // namespace

void SlideChanges(Lines before, Lines after, std::vector<LineMatch>& kept) {
  Slider(before, &LineMatch::before, after.size(), &LineMatch::after, kept).Run();
  Slider(after, &LineMatch::after, before.size(), &LineMatch::before, kept).Run();
}

}  // namespace TalVcs::Kit
