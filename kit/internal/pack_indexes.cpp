#include <kit/internal/pack_indexes.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

// A save merges no index that has more entries than this, 8 MiB of them.
constexpr std::uint64_t kMostMergedEntries = std::uint64_t{1} << 19;
// An index is merged with the one before it unless that one has this many times its entries: a new
// object is looked for in three or four indexes, and an entry is written some ten times for each.
constexpr std::uint64_t kMergedRatio = 8;

}  // namespace

/// Whether an index is of these packs, not of ones that had their numbers before a loss of power.
bool PackIndexes::Fits(const PackIndex& index, const PackSizes& packs) {
  const PackIndexRange& range = index.GetRange();
  if (packs.empty() || range.to.pack > packs.rbegin()->first) return false;
  if (!packs.contains(range.to.pack)) return true;
  const Result<std::optional<std::uint32_t>> check = m_files.CheckBefore(range.to);
  return check && *check == range.lastCheck;
}

void PackIndexes::Load(const PackSizes& packs) {
  m_parts.clear();
  std::vector<Name> names = m_files.ListIndexes();
  std::erase_if(names, [this](const Name& name) {
    return std::find(m_damaged.begin(), m_damaged.end(), name) != m_damaged.end();
  });
  // Always the one that goes farthest, of those that leave no gap.
  for (;;) {
    const PackPlace end = GetEnd();
    std::erase_if(names, [&end](const Name& name) { return name.to <= end; });
    const auto best =
        std::max_element(names.begin(), names.end(), [&end](const Name& a, const Name& b) {
          const bool a_follows = a.from <= end;
          const bool b_follows = b.from <= end;
          return a_follows == b_follows ? a.to < b.to : b_follows;
        });
    if (best == names.end() || best->from > end) return;
    std::unique_ptr<PackIndex> index = m_files.OpenIndex(*best);
    if (index && Fits(*index, packs)) {
      m_parts.push_back({*best, std::move(index)});
    } else {
      names.erase(best);
    }
  }
}

PackPlace PackIndexes::GetEnd() const {
  return m_parts.empty() ? PackPlace() : m_parts.back().index->GetRange().to;
}

bool PackIndexes::Find(std::size_t index, std::uint64_t prefix,
                       std::vector<std::uint64_t>& places) {
  const Part& part = m_parts[index];
  if (part.index->Find(prefix, places)) return true;
  m_damaged.push_back(part.name);
  return false;
}

void PackIndexes::Trim() noexcept {
  for (const Part& part : m_parts) part.index->Trim();
}

bool PackIndexes::Add(const PackPlace& to, std::uint32_t lastCheck,
                      std::vector<PackIndexEntry> entries) {
  PackIndexRange range{GetEnd(), to, lastCheck};
  std::size_t merged = 0;
  for (; merged < m_parts.size(); ++merged) {
    PackIndex& last = *m_parts[m_parts.size() - 1 - merged].index;
    const bool is_small = last.GetCount() < kMergedRatio * entries.size();
    if (!is_small || last.GetCount() + entries.size() > kMostMergedEntries) break;
    std::vector<PackIndexEntry> both = entries;
    if (!last.ReadAll(both)) break;
    entries = std::move(both);
    range.from = last.GetRange().from;
  }
  if (!Write(range, std::move(entries))) return false;
  m_parts.erase(m_parts.end() - 1 - static_cast<std::ptrdiff_t>(merged), m_parts.end() - 1);
  RemoveOthers();
  return true;
}

bool PackIndexes::Replace(const PackPlace& to, std::uint32_t lastCheck,
                          std::vector<PackIndexEntry> entries) {
  if (!entries.empty()) {
    if (!Write({PackPlace(), to, lastCheck}, std::move(entries))) return false;
    m_parts.erase(m_parts.begin(), m_parts.end() - 1);
  } else {
    m_parts.clear();
  }
  m_damaged.clear();
  RemoveOthers();
  return true;
}

bool PackIndexes::Write(const PackIndexRange& range, std::vector<PackIndexEntry> entries) {
  std::sort(entries.begin(), entries.end());
  const Name name{range.from, range.to};
  if (!m_files.WriteIndex(name, MakePackIndex(range, entries))) return false;
  std::unique_ptr<PackIndex> index = m_files.OpenIndex(name);
  if (!index) return false;
  m_parts.push_back({name, std::move(index)});
  return true;
}

void PackIndexes::RemoveOthers() {
  for (const Name& name : m_files.ListIndexes()) {
    const bool used = std::any_of(m_parts.begin(), m_parts.end(),
                                  [&name](const Part& part) { return part.name == name; });
    if (!used) m_files.RemoveIndex(name);
  }
}

}  // namespace TalVcs::Kit
