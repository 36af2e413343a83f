#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/merge/content_merger.h>

#include <functional>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(MatchesPathPattern, ComparesPatternWithPath) {
  const struct {
    std::string pattern;
    std::string path;
    bool matches;
  } rows[] = {
      {"*.txt", "a.txt", true},
      {"*.txt", "deep/er/a.txt", true},
      {"*.txt", "a.txt/b", false},
      {"*.txt", "a.TXT", false},
      {"/*.txt", "a.txt", false},
      {"notes/*.txt", "notes/a.txt", true},
      {"notes/*.txt", "notes/b/a.txt", false},
      {"notes/*.txt", "x/notes/a.txt", false},
      {"notes/**", "notes/b/a.txt", true},
      {"notes/**", "notes", false},
      {"**/a", "a", true},
      {"**/a", "x/y/a", true},
      {"**/a", "xa", false},
      {"x/**/a", "x/a", true},
      {"x/**/a", "x/y/z/a", true},
      {"x/**/a", "xy/a", false},
      {"x/**a", "x/y/za", true},
      {"**", "", true},
      {"*", "", true},
      {"", "", true},
      {"", "a", false},
      {"a?c", "abc", true},
      {"a?c", "ac", false},
      {"x/a?c", "x/a/c", false},
      {"a?c",
       "a\xC3\xA4"
       "c",
       true},
      {"a?c",
       "a\xF0\x9F\x98\x80"
       "c",
       true},
      {"a??c",
       "a\xC3\xA4"
       "c",
       false},
      {"?", "\xC3\xA4", true},
      {"[abc]", "b", true},
      {"[abc]", "d", false},
      {"[a-c]x", "cx", true},
      {"[a-c]x", "dx", false},
      {"[!a-c]", "d", true},
      {"[!a-c]", "b", false},
      {"[]]", "]", true},
      {"[!]]", "]", false},
      {"[a-]", "-", true},
      {"x/[!a]", "x//", false},
      {"x[+--]y/z", "x/y/z", false},
      {"[!a]", "\xC3\xA4", false},
      {"[ab", "[ab", true},
      {"[ab", "a", false},
      {"\\*", "*", true},
      {"\\*", "a", false},
      {"a\\", "a\\", true},
      {"\\[a]", "[a]", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(MatchesPathPattern(row.pattern, row.path), row.matches)
        << row.pattern << " and " << row.path;
  }
}

/// The same rules by trying every length, for patterns of "a", "/", "?", "*" and "**".
bool MatchesPlainly(std::string_view pattern, std::string_view path, bool atComponent) {
  if (pattern.empty()) return path.empty();
  if (atComponent && pattern.starts_with("**/")) {
    if (MatchesPlainly(pattern.substr(3), path, true)) return true;
    const std::size_t slash = path.find('/');
    return slash != path.npos && MatchesPlainly(pattern, path.substr(slash + 1), true);
  }
  if (pattern.starts_with("*")) {
    const bool is_double = pattern.starts_with("**");
    for (std::size_t size = 0; size <= path.size(); ++size) {
      if (!is_double && size > 0 && path[size - 1] == '/') return false;
      if (MatchesPlainly(pattern.substr(is_double ? 2 : 1), path.substr(size), false)) return true;
    }
    return false;
  }
  if (path.empty()) return false;
  const bool fits = pattern.front() == '?' ? path.front() != '/' : path.front() == pattern.front();
  return fits && MatchesPlainly(pattern.substr(1), path.substr(1), pattern.front() == '/');
}

std::vector<std::string> AllTexts(std::string_view letters, std::size_t most) {
  std::vector<std::string> texts{""};
  for (std::size_t i = 0; texts[i].size() < most; ++i) {
    for (const char letter : letters) texts.push_back(texts[i] + letter);
  }
  return texts;
}

TEST(MatchesPathPattern, AgreesWithTryingEveryLength) {
  const std::vector<std::string> paths = AllTexts("ab/", 5);
  for (const std::string& pattern : AllTexts("a/?*", 5)) {
    if (pattern.find('/') == pattern.npos) continue;
    for (const std::string& path : paths) {
      ASSERT_EQ(MatchesPathPattern(pattern, path), MatchesPlainly(pattern, path, true))
          << pattern << " and " << path;
    }
  }
}

TEST(MatchesPathPattern, ManyStarsTakeLittleTime) {
  std::string pattern;
  for (int i = 0; i < 1000; ++i) pattern += "*a";
  EXPECT_FALSE(MatchesPathPattern(pattern + "b", std::string(5000, 'a')));
}

/// A merger that returns `bytes`.
ContentMerger Returning(std::string bytes) {
  return [bytes = std::move(bytes)](const ContentToMerge&) -> Result<MergedContent> {
    return MergedContent{bytes, {}};
  };
}

std::string MergedAt(const ContentMergers& mergers, std::string_view path) {
  const std::optional<MergedContent> merged = mergers.Merge({path, "", "l", "r"}).value();
  return merged ? merged->bytes : "none";
}

TEST(ContentMergers, FirstPatternThatMatchesWins) {
  ContentMergers mergers;
  EXPECT_EQ(MergedAt(mergers, "a.txt"), "none");
  mergers.Add("raw/*", nullptr);
  mergers.Add("*.txt", Returning("text"));
  mergers.Add("**", Returning("any"));
  EXPECT_EQ(MergedAt(mergers, "x/a.txt"), "text");
  EXPECT_EQ(MergedAt(mergers, "x/a.bin"), "any");
  EXPECT_EQ(MergedAt(mergers, "raw/a.txt"), "none");
  EXPECT_EQ(mergers.Find("raw/a.txt"), nullptr);
  EXPECT_NE(mergers.Find("raw/x/a.txt"), nullptr);
}

TEST(ContentMergers, IsAValue) {
  ContentMergers mergers;
  mergers.Add("a", Returning("1"));
  ContentMergers copy = mergers;
  copy.Add("b", Returning("2"));
  EXPECT_EQ(MergedAt(mergers, "b"), "none");
  EXPECT_EQ(MergedAt(copy, "b"), "2");
  mergers = std::move(copy);
  EXPECT_EQ(MergedAt(mergers, "b"), "2");
  copy = mergers;
  EXPECT_EQ(MergedAt(ContentMergers(std::move(mergers)), "a"), "1");
  EXPECT_EQ(MergedAt(copy, "a"), "1");
}

TEST(ContentMergers, PassesOnTheErrorOfAMerger) {
  ContentMergers mergers;
  mergers.Add("*", MakeTextMerger());
  const std::string binary("\0", 1);
  const auto merged = mergers.Merge({"a", "x", "y", binary});
  ASSERT_FALSE(merged);
  EXPECT_EQ(merged.error().code, ErrorCode::Unsupported);
  EXPECT_THAT(merged.error().message, HasSubstr("binary"));
}

TEST(MakeTextMerger, ListsConflictsByLine) {
  const ContentMerger merger = MakeTextMerger({.conflictText = ConflictText::Right});
  const MergedContent merged = merger({"f", "a\nb\n", "a\nL\n", "a\nR\n"}).value();
  EXPECT_EQ(merged.bytes, "a\nR\n");
  EXPECT_THAT(merged.conflicts, ElementsAre(ContentConflict{"line 2", "b\n", "L\n", "R\n"}));
  EXPECT_FALSE(merged.IsClean());
  EXPECT_EQ(merger({"f", std::nullopt, "new\n", "new\n"}).value().bytes, "new\n");
}

TEST(MakeJsonMerger, ListsConflictsByPointer) {
  const ContentMerger merger = MakeJsonMerger({.conflictSide = MergeSide::Right});
  const MergedContent merged = merger({"f", R"({"a":1})", R"({"a":2})", "{}"}).value();
  EXPECT_EQ(merged.bytes, "{}");
  EXPECT_THAT(merged.conflicts, ElementsAre(ContentConflict{"/a", "1", "2", std::nullopt}));
  EXPECT_EQ(merger({"f", std::nullopt, R"({"a":1})", R"({"b":1})"}).value().bytes,
            R"({"a":1,"b":1})");
  EXPECT_FALSE(merger({"f", std::nullopt, "{", "{}"}));
}

}  // namespace
}  // namespace TalVcs::Kit
