#include "ignore.h"

#include <fnmatch.h>

namespace Tal {

IgnoreRules::IgnoreRules(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);

    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    const bool folderOnly = line.back() == '/';
    if (folderOnly) line.remove_suffix(1);
    const bool wholePath = line.find('/') != std::string_view::npos;
    if (wholePath && line.front() == '/') line.remove_prefix(1);
    if (!line.empty()) m_rules.push_back({std::string(line), folderOnly, wholePath});
  }
}

bool IgnoreRules::Matches(const std::string& path, bool isFolder) const {
  if (m_rules.empty()) return false;
  const std::size_t slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  for (const Rule& rule : m_rules) {
    if (rule.folderOnly && !isFolder) continue;
    const std::string& subject = rule.wholePath ? path : name;
    if (fnmatch(rule.pattern.c_str(), subject.c_str(), FNM_PATHNAME) == 0) return true;
  }
  return false;
}

}  // namespace Tal
