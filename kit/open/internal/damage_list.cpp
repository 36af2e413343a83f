#include <kit/open/internal/damage_list.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

std::uint32_t DamageList::Add(Damage damage) {
  const auto number = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_count++, m_most));
  if (number < m_most) m_damages.push_back(std::move(damage));
  return m_sets.Make({number});
}

void DamageList::CountCommit(std::uint32_t set) {
  if (set >= m_commits.size()) m_commits.resize(m_sets.GetCount());
  ++m_commits[set];
}

void DamageList::MoveTo(HistoryReport& report) {
  for (std::uint32_t set = 0; set < m_commits.size(); ++set) {
    m_sets.ForEachNumber(set, [&](std::uint32_t number) {
      if (number < m_damages.size()) m_damages[number].commits += m_commits[set];
    });
  }
  report.damages = std::move(m_damages);
  report.damageCount = m_count;
}

}  // namespace TalVcs::Kit
