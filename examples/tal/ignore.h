#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tal {

/// The names that a commit passes over, read from the file ".talignore" at the top of the folder.
///
/// One shell pattern a line, with *, ? and [...], none of which matches "/"; lines that begin with
/// "#" and empty ones don't count. A pattern that ends with "/" is for folders only. A pattern with
/// another "/" is matched against the path from the top, any other against each name.
class IgnoreRules {
 public:
  IgnoreRules() = default;
  explicit IgnoreRules(std::string_view text);

  /// Returns whether a file or folder is ignored; `path` is relative to the top. The caller must
  /// skip what lies in an ignored folder.
  bool Matches(const std::string& path, bool isFolder) const;

 private:
  struct Rule {
    std::string pattern;
    bool folderOnly;
    bool wholePath;
  };
  std::vector<Rule> m_rules;
};

}  // namespace Tal
