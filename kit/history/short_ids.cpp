#include <kit/history/short_ids.h>
#include <kit/text.h>

#include <algorithm>
#include <iterator>

namespace TalVcs::Kit {

namespace {

std::size_t CountCommon(const std::string& a, const std::string& b) {
  const auto [end, other] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  return static_cast<std::size_t>(end - a.begin());
}

}  // namespace

ShortIds::ShortIds(const Workspace& workspace) {
  for (const Head& branch : workspace.GetBranches()) Add(branch.id);
  for (const Head& tag : workspace.GetTags()) Add(tag.id);
}

void ShortIds::Add(const Id& id) { m_ids.insert(ToUtf8(id.View())); }

// An id has most in common with one of its neighbours.
std::string ShortIds::Of(const Id& id) const {
  const std::string text = ToUtf8(id.View());
  const auto [before, after] = m_ids.equal_range(text);
  std::size_t size = kFewestCharacters;
  if (before != m_ids.begin()) size = std::max(size, CountCommon(text, *std::prev(before)) + 1);
  if (after != m_ids.end()) size = std::max(size, CountCommon(text, *after) + 1);
  return text.substr(0, size);
}

}  // namespace TalVcs::Kit
