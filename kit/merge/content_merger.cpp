#include <kit/merge/content_merger.h>

#include <algorithm>

namespace TalVcs::Kit {
namespace {

/// Matches one character of a path against a set such as "[a-z]". Returns the size of the set in
/// the pattern, or 0 if `pattern` does not begin with a set.
std::size_t MatchSet(std::string_view pattern, char character, bool& matches) {
  if (!pattern.starts_with('[')) return 0;
  std::size_t at = 1;
  const bool is_negated = at < pattern.size() && pattern[at] == '!';
  if (is_negated) ++at;
  const std::size_t first = at;
  bool is_in = false;
  for (; at < pattern.size() && (pattern[at] != ']' || at == first); ++at) {
    const char low = pattern[at];
    char high = low;
    if (at + 2 < pattern.size() && pattern[at + 1] == '-' && pattern[at + 2] != ']') {
      at += 2;
      high = pattern[at];
    }
    is_in = is_in || (low <= character && character <= high);
  }
  if (at >= pattern.size()) return 0;
  const bool is_ascii = (static_cast<unsigned char>(character) & 0x80U) == 0;
  matches = is_in != is_negated && is_ascii && character != '/';
  return at + 1;
}

bool IsTail(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

/// The places of a path that the pattern read so far can have reached. One pass over the path for
/// each token of the pattern.
class PathMatch {
 public:
  explicit PathMatch(std::string_view path) : m_path(path), m_reached(path.size() + 1) {
    m_reached[0] = true;
  }

  bool Run(std::string_view pattern) {
    bool at_component = true;
    while (!pattern.empty()) {
      const std::size_t size = TakeToken(pattern, at_component);
      at_component = pattern[size - 1] == '/';
      pattern.remove_prefix(size);
    }
    return m_reached.back();
  }

 private:
  // Returns the size of the token.
  std::size_t TakeToken(std::string_view pattern, bool atComponent) {
    if (atComponent && pattern.starts_with("**/")) {
      SkipComponents();
      return 3;
    }
    if (pattern.starts_with("**")) {
      Skip([](char) { return true; });
      return 2;
    }
    if (pattern.front() == '*') {
      Skip([](char character) { return character != '/'; });
      return 1;
    }
    if (pattern.front() == '?') {
      Step([](char character) { return character != '/'; });
      Skip(IsTail);
      DropInsideCharacters();
      return 1;
    }
    bool ignored = false;
    if (const std::size_t size = MatchSet(pattern, '\0', ignored)) {
      Step([&](char character) {
        bool matches = false;
        MatchSet(pattern, character, matches);
        return matches;
      });
      return size;
    }
    const std::size_t escape = pattern.front() == '\\' && pattern.size() > 1 ? 1 : 0;
    Step([&](char character) { return character == pattern[escape]; });
    return escape + 1;
  }

  template <class Accepts>
  void Step(Accepts accepts) {
    for (std::size_t i = m_path.size(); i > 0; --i) {
      m_reached[i] = m_reached[i - 1] && accepts(m_path[i - 1]);
    }
    m_reached[0] = false;
  }

  template <class Accepts>
  void Skip(Accepts accepts) {
    for (std::size_t i = 0; i < m_path.size(); ++i) {
      if (m_reached[i] && accepts(m_path[i])) m_reached[i + 1] = true;
    }
  }

  // Stays, or goes to the beginning of a later component.
  void SkipComponents() {
    bool has_started = false;
    for (std::size_t i = 0; i < m_path.size(); ++i) {
      has_started = has_started || m_reached[i];
      if (has_started && m_path[i] == '/') m_reached[i + 1] = true;
    }
  }

  void DropInsideCharacters() {
    for (std::size_t i = 0; i < m_path.size(); ++i) {
      if (IsTail(m_path[i])) m_reached[i] = false;
    }
  }

  std::string_view m_path;
  std::vector<bool> m_reached;
};

}  // namespace

ContentMerger MakeTextMerger(TextMergeOptions options) {
  return [options = std::move(options)](const ContentToMerge& content) -> Result<MergedContent> {
    Result<TextMerge> merge =
        MergeText(content.root.value_or(""), content.left, content.right, options);
    if (!merge) return std::move(merge).error();
    MergedContent merged{std::move(merge->text), {}};
    for (TextConflict& conflict : merge->conflicts) {
      merged.conflicts.push_back({"line " + std::to_string(conflict.leftLines.first + 1),
                                  std::move(conflict.root), std::move(conflict.left),
                                  std::move(conflict.right)});
    }
    return merged;
  };
}

ContentMerger MakeJsonMerger(JsonMergeOptions options) {
  return [options = std::move(options)](const ContentToMerge& content) -> Result<MergedContent> {
    Result<JsonMerge> merge = content.root
                                  ? MergeJson(*content.root, content.left, content.right, options)
                                  : MergeAddedJson(content.left, content.right, options);
    if (!merge) return std::move(merge).error();
    MergedContent merged{std::move(merge->text), {}};
    for (JsonConflict& conflict : merge->conflicts) {
      merged.conflicts.push_back({std::move(conflict.pointer), std::move(conflict.root),
                                  std::move(conflict.left), std::move(conflict.right)});
    }
    return merged;
  };
}

bool MatchesPathPattern(std::string_view pattern, std::string_view path) {
  if (pattern.find('/') == std::string_view::npos) path = path.substr(path.rfind('/') + 1);
  return PathMatch(path).Run(pattern);
}

ContentMergers::ContentMergers() = default;
ContentMergers::ContentMergers(const ContentMergers& other) = default;
ContentMergers::ContentMergers(ContentMergers&& other) noexcept = default;
ContentMergers& ContentMergers::operator=(const ContentMergers& other) = default;
ContentMergers& ContentMergers::operator=(ContentMergers&& other) noexcept = default;
ContentMergers::~ContentMergers() = default;

void ContentMergers::Add(std::string pattern, ContentMerger merger) {
  m_mergers.emplace_back(std::move(pattern), std::move(merger));
}

const ContentMerger* ContentMergers::Find(std::string_view path) const {
  const auto found = std::find_if(m_mergers.begin(), m_mergers.end(), [&](const auto& entry) {
    return MatchesPathPattern(entry.first, path);
  });
  return found == m_mergers.end() || !found->second ? nullptr : &found->second;
}

Result<std::optional<MergedContent>> ContentMergers::Merge(const ContentToMerge& content) const {
  const ContentMerger* merger = Find(content.path);
  if (merger == nullptr) return std::optional<MergedContent>();
  Result<MergedContent> merged = (*merger)(content);
  if (!merged) return std::move(merged).error();
  return std::optional(std::move(*merged));
}

}  // namespace TalVcs::Kit
