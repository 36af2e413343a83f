#include "short_ids.h"

#include <algorithm>
#include <iterator>

namespace Tal {
namespace {

constexpr std::size_t kLeastCharacters = 7;

std::size_t CountCommon(const std::string& a, const std::string& b) {
  const auto [end, other] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  return static_cast<std::size_t>(end - a.begin());
}

}  // namespace

ShortIds::ShortIds(Session& session) {
  for (const Kit::Head& branch : session.Document().GetBranches()) Add(branch.id);
  for (const Kit::Head& tag : session.Document().GetTags()) Add(tag.id);
}

void ShortIds::Add(const TalVcs::Id& id) { m_ids.insert(ToUtf8(id)); }

std::string ShortIds::Of(const TalVcs::Id& id) const {
  const std::string text = ToUtf8(id);
  const auto [before, after] = m_ids.equal_range(text);
  std::size_t size = kLeastCharacters;
  if (before != m_ids.begin()) size = std::max(size, CountCommon(text, *std::prev(before)) + 1);
  if (after != m_ids.end()) size = std::max(size, CountCommon(text, *after) + 1);
  return text.substr(0, size);
}

std::string ShortIdOf(Session& session, const TalVcs::Id& id) { return ShortIds(session).Of(id); }

}  // namespace Tal
