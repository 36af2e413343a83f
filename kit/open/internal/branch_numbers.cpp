#include <kit/open/internal/branch_numbers.h>

#include <algorithm>

namespace TalVcs::Kit {

BranchNumbers::BranchNumbers(std::span<const std::uint32_t> parents,
                             const std::map<std::uint32_t, std::vector<std::uint32_t>>& heads)
    : m_ranges(parents.size()) {
  // Children before parents: the end of each range is first the number of branches.
  std::vector<std::uint32_t> children(parents.size());
  for (const std::uint32_t parent : parents) {
    if (parent != kNone) ++children[parent];
  }
  for (std::uint32_t commit = 0; commit < parents.size(); ++commit) {
    if (children[commit] == 0) m_order.push_back(commit);
  }
  std::uint32_t count = 0;
  for (const auto& [commit, branches] : heads) {
    m_ranges[commit].end = static_cast<std::uint32_t>(branches.size());
    count += m_ranges[commit].end;
  }
  for (std::size_t at = 0; at < m_order.size(); ++at) {
    const std::uint32_t parent = parents[m_order[at]];
    if (parent == kNone) continue;
    m_ranges[parent].end += m_ranges[m_order[at]].end;
    if (--children[parent] == 0) m_order.push_back(parent);
  }
  // Parents before children: each takes the next numbers of its parent, and the first of those for
  // its own branches.
  std::reverse(m_order.begin(), m_order.end());
  m_branches.resize(count);
  std::uint32_t first = 0;
  std::vector<std::uint32_t> next(parents.size());
  for (const std::uint32_t commit : m_order) {
    std::uint32_t& taken = parents[commit] == kNone ? first : next[parents[commit]];
    m_ranges[commit] = {taken, taken + m_ranges[commit].end};
    next[commit] = taken;
    taken = m_ranges[commit].end;
    const auto here = heads.find(commit);
    if (here == heads.end()) continue;
    for (const std::uint32_t branch : here->second) m_branches[next[commit]++] = branch;
  }
}

}  // namespace TalVcs::Kit
