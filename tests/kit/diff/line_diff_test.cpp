#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/diff/line_diff.h>
#include <kit/diff/unified_diff.h>
#include <kit/diff/word_diff.h>
#include <tests/kit/diff/generated_texts.h>

#include <algorithm>
#include <sstream>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using Testing::GeneratedTexts;
using ::testing::IsEmpty;

/// Writes a comparison as one line for each line, such as "-b\n".
std::string Show(const std::vector<DiffLine>& lines) {
  std::string text;
  for (const DiffLine& line : lines) text += UnifiedLine(line) + '\n';
  return text;
}

std::string SideOf(const std::vector<DiffLine>& lines, LineKind other) {
  std::string text;
  for (const DiffLine& line : lines) {
    if (line.kind != other) text += line.text;
  }
  return text;
}

std::size_t CountKept(const std::vector<DiffLine>& lines) {
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(),
                    [](const DiffLine& line) { return line.kind == LineKind::Kept; }));
}

void ExpectTurnsInto(const std::vector<DiffLine>& lines, const std::string& before,
                     const std::string& after) {
  ASSERT_EQ(SideOf(lines, LineKind::Added), before);
  ASSERT_EQ(SideOf(lines, LineKind::Removed), after);
}

/// The length of a longest common subsequence, by the table of all prefixes.
std::size_t LongestCommon(const std::vector<std::string_view>& a,
                          const std::vector<std::string_view>& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (const std::string_view line : a) {
    std::size_t diagonal = 0;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = line == b[j - 1] ? diagonal + 1 : std::max(above, row[j - 1]);
      diagonal = above;
    }
  }
  return row.back();
}

void ExpectShortest(const std::string& before, const std::string& after) {
  const std::vector<DiffLine> lines = DiffLines(before, after);
  ExpectTurnsInto(lines, before, after);
  ASSERT_EQ(CountKept(lines), LongestCommon(SplitLines(before), SplitLines(after)))
      << before << "--\n"
      << after;
}

TEST(SplitLines, KeepsLineEnds) {
  EXPECT_THAT(SplitLines(""), IsEmpty());
  EXPECT_THAT(SplitLines("\n"), ElementsAre("\n"));
  EXPECT_THAT(SplitLines("a\r\n\nb"), ElementsAre("a\r\n", "\n", "b"));
}

TEST(IsBinary, LooksForAZeroInTheFirst8000Bytes) {
  EXPECT_FALSE(IsBinary(""));
  EXPECT_FALSE(IsBinary("text\xFF"));
  EXPECT_TRUE(IsBinary(std::string(7999, 'x') + '\0'));
  EXPECT_FALSE(IsBinary(std::string(8000, 'x') + '\0'));
}

/// No added lines could also be after the line that follows them.
void ExpectLateAdditions(const std::string& before, const std::string& after) {
  const auto old_lines = SplitLines(before);
  const auto new_lines = SplitLines(after);
  for (const LineChange& change : FindLineChanges(old_lines, new_lines).changes) {
    const std::size_t end = change.afterFirst + change.afterCount;
    if (change.beforeCount > 0 || end == new_lines.size()) continue;
    ASSERT_NE(new_lines[change.afterFirst], new_lines[end]) << before << "--\n" << after;
  }
}

/// Returns all texts of up to `most` lines of three kinds.
std::vector<std::string> AllTexts(std::size_t most) {
  std::vector<std::string> texts{""};
  for (std::size_t i = 0; texts[i].size() < 2 * most; ++i) {
    for (const char* line : {"a\n", "b\n", "c\n"}) texts.push_back(texts[i] + line);
  }
  return texts;
}

TEST(DiffLines, IsShortestForAllTextsOfUpToFiveLinesOfThreeKinds) {
  const std::vector<std::string> texts = AllTexts(5);
  ASSERT_EQ(texts.size(), 364U);
  for (const std::string& before : texts) {
    for (const std::string& after : texts) ExpectShortest(before, after);
  }
}

TEST(DiffLines, AddsLinesAsLateAsPossibleInAllSmallTexts) {
  for (const std::string& before : AllTexts(2)) {
    for (const std::string& after : AllTexts(5)) ExpectLateAdditions(before, after);
  }
}

TEST(DiffLines, IsShortestForGeneratedTexts) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    GeneratedTexts texts(seed);
    const std::size_t letters = 2 + texts.Below(20);
    ExpectShortest(texts.Text(texts.Below(80), letters), texts.Text(texts.Below(80), letters));
  }
}

TEST(DiffLines, PutsRemovedLinesBeforeAddedOnes) {
  EXPECT_EQ(Show(DiffLines("a\nb\nc\nd\n", "a\nB\nC\nd\n")), " a\n-b\n-c\n+B\n+C\n d\n");
}

TEST(DiffLines, LastLineWithoutEndDiffers) {
  EXPECT_THAT(DiffLines("a\nb", "a\nb\n"),
              ElementsAre(DiffLine{LineKind::Kept, "a\n"}, DiffLine{LineKind::Removed, "b"},
                          DiffLine{LineKind::Added, "b\n"}));
}

TEST(DiffLines, PutsAChangeAmongEqualLinesAsLateAsPossible) {
  EXPECT_EQ(Show(DiffLines("x\na\na\ny\n", "x\na\na\na\ny\n")), " x\n a\n a\n+a\n y\n");
  EXPECT_EQ(Show(DiffLines("f\n}\ng\n}\n", "f\n}\nh\n}\ng\n}\n")), " f\n }\n+h\n+}\n g\n }\n");
  EXPECT_EQ(Show(DiffLines("x\na\nb\na\nb\ny\n", "x\na\nb\ny\n")), " x\n a\n b\n-a\n-b\n y\n");
}

TEST(DiffLines, JoinsChangesThatMeetAtTheSamePlace) {
  // The added line could also be after the kept one that follows the removed line.
  EXPECT_EQ(Show(DiffLines("x\nold\na\ny\n", "x\na\na\ny\n")), " x\n-old\n+a\n a\n y\n");
}

TEST(FindLineChanges, ReturnsLineNumbersFromZero) {
  const std::vector<std::string_view> before{"a", "b", "c", "d"};
  const std::vector<std::string_view> after{"x", "a", "c", "D"};
  const LineChanges result = FindLineChanges(before, after);
  EXPECT_THAT(result.changes,
              ElementsAre(LineChange{0, 0, 0, 1}, LineChange{1, 1, 2, 0}, LineChange{3, 1, 3, 1}));
  EXPECT_TRUE(result.isShortest);
}

TEST(FindLineChanges, KeepsUniqueLinesBeyondTheBound) {
  const std::string before = "a\nsome\nb\nother\na\nb\n";
  const std::string after = "b\nsome\na\nother\nb\na\n";
  const std::vector<DiffLine> lines = DiffLines(before, after, {.mostSteps = 0});
  EXPECT_EQ(Show(lines), "-a\n+b\n some\n-b\n+a\n other\n-a\n b\n+a\n");
  EXPECT_FALSE(FindLineChanges(SplitLines(before), SplitLines(after), {.mostSteps = 0}).isShortest);
}

TEST(FindLineChanges, ReplacesThePartWithoutUniqueLinesBeyondTheBound) {
  EXPECT_EQ(Show(DiffLines("x\na\nb\na\nb\ny\n", "x\nb\nb\na\na\ny\n", {.mostSteps = 0})),
            " x\n-a\n-b\n-a\n-b\n+b\n+b\n+a\n+a\n y\n");
}

TEST(FindLineChanges, AnyBoundGivesAComparisonThatIsRight) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    GeneratedTexts texts(seed);
    const std::string before = texts.Text(texts.Below(60), 8);
    const std::string after = texts.Text(texts.Below(60), 8);
    ExpectTurnsInto(DiffLines(before, after, {.mostSteps = texts.Below(400)}), before, after);
  }
}

TEST(FindLineChanges, LargeTextsThatDifferEverywhereStayWithinTheBound) {
  GeneratedTexts texts(1);
  const std::string before = texts.Text(100'000, 20);
  const std::string after = texts.Text(100'000, 20);
  const auto old_lines = SplitLines(before);
  const auto new_lines = SplitLines(after);
  EXPECT_FALSE(FindLineChanges(old_lines, new_lines, {.mostSteps = 100'000}).isShortest);
  // Lines that the other text lacks do not count.
  const std::string others = Testing::Joined(texts.NewLines(100'000));
  EXPECT_TRUE(FindLineChanges(old_lines, SplitLines(others), {.mostSteps = 0}).isShortest);
}

TEST(FindHunks, JoinsChangesWhoseContextTouches) {
  const auto hunks_of = [](std::size_t gap, std::size_t context) {
    std::vector<DiffLine> lines{{LineKind::Added, "a\n"}};
    lines.insert(lines.end(), gap, {LineKind::Kept, "k\n"});
    lines.push_back({LineKind::Removed, "b\n"});
    return FindHunks(lines, context);
  };
  EXPECT_THAT(hunks_of(6, 3), ElementsAre(Hunk{0, 8, 1, 7, 1, 7}));
  EXPECT_THAT(hunks_of(7, 3), ElementsAre(Hunk{0, 4, 1, 3, 1, 4}, Hunk{5, 4, 5, 4, 6, 3}));
  EXPECT_THAT(hunks_of(1, 0), ElementsAre(Hunk{0, 1, 1, 0, 1, 1}, Hunk{2, 1, 2, 1, 3, 0}));
  EXPECT_THAT(FindHunks({}, 3), IsEmpty());
}

TEST(UnifiedDiff, HasTheFormThatPatchReads) {
  EXPECT_EQ(UnifiedDiff("1\n2\n3\n4\n5\n6", "1\n2\n3\n4\nfive\n6\n",
                        {.beforeName = "a/f", .afterName = "b/f"}),
            "--- a/f\n+++ b/f\n@@ -2,5 +2,5 @@\n 2\n 3\n 4\n-5\n-6\n"
            "\\ No newline at end of file\n+five\n+6\n");
  EXPECT_EQ(UnifiedDiff("", "a\n"), "@@ -0,0 +1,1 @@\n+a\n");
  EXPECT_EQ(UnifiedDiff("a\n", ""), "@@ -1,1 +0,0 @@\n-a\n");
  EXPECT_EQ(UnifiedDiff("same\n", "same\n", {.beforeName = "a", .afterName = "b"}), "");
  EXPECT_EQ(UnifiedDiff("a\nb\nc\n", "a\nB\nc\n", {.contextLines = 0}),
            "@@ -2,1 +2,1 @@\n-b\n+B\n");
}

/// Applies a unified diff as its format says, by line numbers alone.
std::string Apply(const std::string& text, const std::string& diff) {
  const std::vector<std::string_view> old_lines = SplitLines(text);
  std::string result;
  std::size_t next = 0;
  std::istringstream in(diff);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("@@ -")) {
      const std::size_t first = std::stoul(line.substr(4));
      const bool has_lines = std::stoul(line.substr(line.find(',') + 1)) > 0;
      const std::size_t begin = has_lines ? first - 1 : first;
      while (next < begin) result += old_lines[next++];
    } else if (line.front() == '\\') {
      if (result.ends_with('\n')) result.pop_back();
    } else {
      if (line.front() != '+') ++next;
      if (line.front() != '-') result += line.substr(1) + '\n';
    }
  }
  while (next < old_lines.size()) result += old_lines[next++];
  return result;
}

TEST(UnifiedDiff, AppliedGivesTheOtherText) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    GeneratedTexts texts(seed);
    const std::vector<std::string> lines = texts.NewLines(texts.Below(60));
    const std::string before = Testing::Joined(lines);
    const std::string after = Testing::Joined(texts.Edited(lines, texts.Below(6)));
    const std::string diff = UnifiedDiff(before, after, {.contextLines = texts.Below(4)});
    ASSERT_EQ(Apply(before, diff), after) << diff;
  }
}

/// Puts the ranges of a line into brackets.
std::string Marked(std::string_view line, const std::vector<TextRange>& ranges) {
  std::string text(line);
  for (auto range = ranges.rbegin(); range != ranges.rend(); ++range) {
    text.insert(range->offset + range->sizeBytes, "]").insert(range->offset, "[");
  }
  return text;
}

TEST(FindChangedWords, MarksWordsBlanksAndMarks) {
  const auto marked = [](std::string_view before, std::string_view after) {
    const ChangedWords words = FindChangedWords(before, after);
    return Marked(before, words.before) + " -> " + Marked(after, words.after);
  };
  EXPECT_EQ(marked("int old_name = 1;", "int new_name = 12;"),
            "int [old_name] = [1]; -> int [new_name] = [12];");
  EXPECT_EQ(marked("f(a)", "f(a, b)"), "f(a) -> f(a[, b])");
  EXPECT_EQ(marked("a b", "a   b"), "a[ ]b -> a[   ]b");
  EXPECT_EQ(marked("gr\xC3\xBC\xC3\x9F e", "gr\xC3\xBC n e"),
            "[gr\xC3\xBC\xC3\x9F] e -> [gr\xC3\xBC n] e");
  EXPECT_EQ(marked("same", "same"), "same -> same");
  EXPECT_EQ(marked("", "x"), " -> [x]");
}

TEST(MarkChangedWords, PairsRemovedAndAddedLinesInTheirOrder) {
  const std::vector<MarkedLine> lines =
      MarkChangedWords(DiffLines("keep\nsize = 1\nfoo\nmore\n", "keep\nsize = 2\nbar\n"));
  std::string shown;
  for (const MarkedLine& line : lines) shown += Marked(line.text, line.changed);
  // "foo" and "bar" have no word in common; "more" has no counterpart.
  EXPECT_EQ(shown, "keep\nsize = [1]\nfoo\nmore\nsize = [2]\nbar\n");
  EXPECT_EQ(lines[1].kind, LineKind::Removed);
  EXPECT_EQ(lines[4].kind, LineKind::Added);
}

}  // namespace
}  // namespace TalVcs::Kit
