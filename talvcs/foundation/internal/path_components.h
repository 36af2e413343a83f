#pragma once

#include <talvcs/foundation/array_view.h>
#include <talvcs/foundation/string_view.h>
#include <talvcs/foundation/wide_char.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace TalUtils {

/// Calls `visit(component)` for each component of `path`: the runs between slashes that are not
/// empty.
template <class Visit>
void VisitComponents(TalPlatform::TalStringViewT<TalPlatform::WideChar> path, Visit visit) {
  const auto* const end = path.text + path.length;
  const auto* start = path.text;
  while (start != end) {
    const auto* const stop = std::find(start, end, TAL_WIDE('/'));
    if (stop != start) {
      visit(path.Mid(static_cast<int>(start - path.text), static_cast<int>(stop - start)));
    }
    start = stop == end ? end : stop + 1;
  }
}

/// The components of a path, as views of its text.
///
/// Allocates nothing for a path of common depth: an edit of a directory that is open already has a
/// path of one component, whose list took as long as the entry itself.
class PathComponents {
 public:
  using Component = TalPlatform::TalStringViewT<TalPlatform::WideChar>;

  explicit PathComponents(Component path) {
    VisitComponents(path, [this](Component component) { Add(component); });
  }
  PathComponents(const PathComponents&) = delete;
  PathComponents& operator=(const PathComponents&) = delete;

  array_view<const Component> Get() const noexcept {
    const Component* const first = m_deep.empty() ? m_first.data() : m_deep.data();
    return {first, first + m_count};
  }

 private:
  void Add(Component component) {
    if (m_count < m_first.size()) {
      m_first[m_count++] = component;
      return;
    }
    if (m_deep.empty()) m_deep.assign(m_first.begin(), m_first.end());
    m_deep.push_back(component);
    ++m_count;
  }

  std::array<Component, 8> m_first;
  std::size_t m_count = 0;
  std::vector<Component> m_deep;  // all of them, if there are more
};

}  // namespace TalUtils
