#include <kit/diff/blame.h>

#include <string_view>
#include <utility>

// A line is followed from version to version as long as the older one has it. `m_places` has, for
// each line of the version at hand, the lines of the newest version that it became: at most one.

namespace TalVcs::Kit {
namespace {

constexpr std::size_t kNoLine = static_cast<std::size_t>(-1);

class BlameWalk {
 public:
  explicit BlameWalk(const BlameOptions& options) : m_options(options) {}

  Result<Blame> Run(const NextOlderVersion& next) {
    if (!Report()) return CancelledError();
    while (m_open > 0 || m_blame.versions.empty()) {
      if (m_blame.versions.size() >= m_options.mostVersions) {
        m_blame.isComplete = false;
        break;
      }
      Result<std::optional<TextVersion>> version = next();
      if (!version) return std::move(version).error();
      if (!*version) break;
      Enter(std::move(**version));
      if (!Report()) return CancelledError();
    }
    BlameOpenLines();
    return std::move(m_blame);
  }

 private:
  void Enter(TextVersion version) {
    if (m_blame.versions.empty()) {
      EnterNewest(std::move(version.text));
    } else if (version.text != m_text) {
      EnterOlder(std::move(version.text));
    }
    m_blame.versions.push_back(std::move(version.id));
  }

  void EnterNewest(std::string text) {
    m_text = std::move(text);
    for (const std::string_view line : SplitLines(m_text)) {
      m_places.push_back(m_blame.lines.size());
      m_blame.lines.push_back({std::string(line), 0, 0});
    }
    m_open = m_places.size();
  }

  // The lines that the older version lacks are of the version before it in the list.
  void EnterOlder(std::string text) {
    const std::vector<std::string_view> older = SplitLines(text);
    const std::vector<std::string_view> newer = SplitLines(m_text);
    std::vector<std::size_t> places(older.size(), kNoLine);
    std::size_t older_line = 0;
    std::size_t newer_line = 0;
    const auto keep_up_to = [&](std::size_t end) {
      while (older_line < end) places[older_line++] = m_places[newer_line++];
    };
    for (const LineChange& change : FindLineChanges(older, newer, m_options.lines).changes) {
      keep_up_to(change.beforeFirst);
      older_line += change.beforeCount;
      for (std::size_t i = 0; i < change.afterCount; ++i) BlameLine(newer_line++);
    }
    keep_up_to(older.size());
    m_places = std::move(places);
    m_text = std::move(text);
  }

  /// Blames the last version of the list for a line of its text.
  void BlameLine(std::size_t line) {
    if (m_places[line] == kNoLine) return;
    BlamedLine& blamed = m_blame.lines[m_places[line]];
    blamed.version = m_blame.versions.size() - 1;
    blamed.line = line;
    --m_open;
  }

  void BlameOpenLines() {
    for (std::size_t line = 0; line < m_places.size(); ++line) BlameLine(line);
  }

  bool Report() const {
    if (!m_options.progress) return true;
    ProgressStep step;
    step.phase = "versions";
    step.done = m_blame.versions.size();
    return m_options.progress(step);
  }

  static Error CancelledError() {
    Error error;
    error.code = ErrorCode::Cancelled;
    error.message = "the search for the origin of the lines was cancelled";
    return error;
  }

  const BlameOptions& m_options;
  Blame m_blame;
  std::string m_text;  // of the version at hand
  std::vector<std::size_t> m_places;
  std::size_t m_open = 0;  // lines without an origin
};

}  // namespace

Result<Blame> BlameText(const NextOlderVersion& next, const BlameOptions& options) {
  return BlameWalk(options).Run(next);
}

}  // namespace TalVcs::Kit
