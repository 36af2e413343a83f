#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/merge/text_merge.h>
#include <tests/kit/diff/generated_texts.h>

#include <utility>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using Testing::GeneratedTexts;
using ::testing::HasSubstr;
using Testing::Joined;
using ::testing::SizeIs;

const TextMergeOptions kMarkers{.conflictText = ConflictText::Markers};

TextMerge Merge(std::string_view root, std::string_view left, std::string_view right,
                const TextMergeOptions& options = {}) {
  return MergeText(root, left, right, options).value();
}

/// Returns the text of a merge that must be clean, or "conflict".
std::string CleanText(std::string_view root, std::string_view left, std::string_view right) {
  TextMerge merge = Merge(root, left, right);
  return merge.IsClean() ? merge.text : "conflict";
}

TEST(MergeText, TakesChangesOfBothSides) {
  EXPECT_EQ(CleanText("a\nb\nc\nd\n", "A\nb\nc\nd\n", "a\nb\nc\nd\ne\n"), "A\nb\nc\nd\ne\n");
  EXPECT_EQ(CleanText("a\nb\nc\nd\n", "b\nc\nd\n", "a\nb\nd\n"), "b\nd\n");
  EXPECT_EQ(CleanText("a\nb", "x\na\nb", "a\nB"), "x\na\nB");
}

TEST(MergeText, TakesAChangeThatBothMadeOnce) {
  EXPECT_EQ(CleanText("a\nb\nc\n", "a\nB\nc\n", "a\nB\nc\n"), "a\nB\nc\n");
  EXPECT_EQ(CleanText("a\nb\nc\nd\n", "a\nB\nc\nd\n", "a\nB\nc\nD\n"), "a\nB\nc\nD\n");
  EXPECT_EQ(CleanText("", "new\n", "new\n"), "new\n");
}

TEST(MergeText, ChangesOfNeighbouringLinesAreAConflict) {
  const TextMerge merge = Merge("a\nb\nc\nd\n", "a\nB\nc\nd\n", "a\nb\nC\nd\n");
  EXPECT_THAT(merge.conflicts,
              ElementsAre(TextConflict{"b\nc\n", "B\nc\n", "b\nC\n", {1, 2}, {1, 2}, {1, 2}}));
  EXPECT_EQ(merge.text, "a\nB\nc\nd\n");
  // One line between them is enough.
  EXPECT_EQ(CleanText("a\nb\nc\n", "A\nb\nc\n", "a\nb\nC\n"), "A\nb\nC\n");
}

TEST(MergeText, ChangesThatOverlapInAChainAreOneConflict) {
  const TextMerge merge = Merge("1\n2\n3\n4\n5\n6\n", "1\nx\nx\n4\ny\n6\n", "1\n2\nz\nz\nz\n6\n");
  ASSERT_THAT(merge.conflicts, SizeIs(1));
  EXPECT_EQ(merge.conflicts[0].root, "2\n3\n4\n5\n");
  EXPECT_EQ(merge.conflicts[0].left, "x\nx\n4\ny\n");
  EXPECT_EQ(merge.conflicts[0].right, "2\nz\nz\nz\n");
}

TEST(MergeText, ConflictHasTheLinesOfEachVersion) {
  const TextMerge merge =
      Merge("a\nb\nc\nd\ne\n", "new\na\nLEFT\nc\nd\ne\n", "a\nRIGHT\nMORE\nc\ne\n");
  EXPECT_EQ(merge.text, "new\na\nLEFT\nc\ne\n");
  EXPECT_THAT(merge.conflicts,
              ElementsAre(TextConflict{"b\n", "LEFT\n", "RIGHT\nMORE\n", {1, 1}, {2, 1}, {1, 2}}));
}

TEST(MergeText, RemovedAndChangedLinesAreAConflict) {
  const TextMerge merge = Merge("a\nb\nc\n", "a\nc\n", "a\nB\nc\n");
  EXPECT_THAT(merge.conflicts, ElementsAre(TextConflict{"b\n", "", "B\n", {1, 1}, {1, 0}, {1, 1}}));
}

TEST(MergeText, WritesTheChosenLinesInThePlaceOfAConflict) {
  const auto text = [](ConflictText conflictText) {
    return Merge("a\nb\nc\n", "a\nL\nc\n", "a\nR\nc\n", {.conflictText = conflictText}).text;
  };
  EXPECT_EQ(text(ConflictText::Left), "a\nL\nc\n");
  EXPECT_EQ(text(ConflictText::Right), "a\nR\nc\n");
  EXPECT_EQ(text(ConflictText::Root), "a\nb\nc\n");
  EXPECT_EQ(text(ConflictText::Both), "a\nL\nR\nc\n");
  EXPECT_EQ(text(ConflictText::Markers), "a\n<<<<<<< ours\nL\n=======\nR\n>>>>>>> theirs\nc\n");
  EXPECT_EQ(text(ConflictText::MarkersWithRoot),
            "a\n<<<<<<< ours\nL\n||||||| base\nb\n=======\nR\n>>>>>>> theirs\nc\n");
}

TEST(MergeText, WritesLabelsAndSizeOfMarkersFromTheOptions) {
  TextMergeOptions options = kMarkers;
  options.markerSize = 3;
  options.leftLabel = "mine";
  options.rightLabel = "";
  EXPECT_EQ(Merge("b\n", "L\n", "R\n", options).text, "<<< mine\nL\n===\nR\n>>>\n");
}

TEST(MergeText, CommonEndsOfAConflictAreMerged) {
  const std::string root = "a\nb\nc\n";
  const std::string left = "a\nsame\nL\nend\nc\n";
  const std::string right = "a\nsame\nR\nend\nc\n";
  const TextMerge merge = Merge(root, left, right, kMarkers);
  EXPECT_EQ(merge.text, "a\nsame\n<<<<<<< ours\nL\n=======\nR\n>>>>>>> theirs\nend\nc\n");
  EXPECT_THAT(merge.conflicts,
              ElementsAre(TextConflict{"b\n", "L\n", "R\n", {1, 1}, {2, 1}, {2, 1}}));
  EXPECT_EQ(Merge(root, left, right, {.conflictText = ConflictText::MarkersWithRoot}).text,
            "a\n<<<<<<< ours\nsame\nL\nend\n||||||| base\nb\n=======\nsame\nR\nend\n"
            ">>>>>>> theirs\nc\n");
}

TEST(MergeText, CommonEndsThatTheRootHasTooLeaveItsPartOfTheConflict) {
  // The right side's change of "b" to "d" joins two changes of the left side, both of which have
  // "2".
  const TextMerge merge = Merge("b\n2\nc\nd\n", "2\nC\nd\n", "2\nx\n");
  EXPECT_THAT(merge.conflicts,
              ElementsAre(TextConflict{"c\nd\n", "C\nd\n", "x\n", {2, 2}, {1, 2}, {1, 1}}));
}

TEST(HasConflictMarkers, FindsTheFirstMarkerLineOfAConflict) {
  EXPECT_TRUE(HasConflictMarkers(Merge("a\nb\n", "a\nL\n", "a\nR\n", kMarkers).text));
  EXPECT_TRUE(HasConflictMarkers("<<<<<<< ours\r\nL"));
  EXPECT_FALSE(HasConflictMarkers("a <<<<<<< ours\n=======\n>>>>>>> theirs\n"));
  EXPECT_FALSE(HasConflictMarkers("<<<<<<< mine\n"));
  EXPECT_FALSE(HasConflictMarkers(""));
  TextMergeOptions options = kMarkers;
  options.markerSize = 3;
  options.leftLabel = "";
  EXPECT_TRUE(HasConflictMarkers(Merge("b\n", "L\n", "R\n", options).text, options));
  EXPECT_FALSE(HasConflictMarkers("a\n<<\n", options));
}

TEST(MergeText, EndsLinesBeforeMarkers) {
  EXPECT_EQ(Merge("a", "L", "R", kMarkers).text, "<<<<<<< ours\nL\n=======\nR\n>>>>>>> theirs\n");
  EXPECT_EQ(Merge("a", "L", "R", {.conflictText = ConflictText::Both}).text, "L\nR");
}

TEST(MergeText, MarkersHaveTheLineEndsAroundThem) {
  EXPECT_EQ(Merge("x\r\na\r\n", "x\r\nL\r\n", "x\r\nR\r\n", kMarkers).text,
            "x\r\n<<<<<<< ours\r\nL\r\n=======\r\nR\r\n>>>>>>> theirs\r\n");
  EXPECT_EQ(Merge("a\r\n", "L\r\n", "R", kMarkers).text,
            "<<<<<<< ours\r\nL\r\n=======\r\nR\r\n>>>>>>> theirs\r\n");
}

TEST(MergeText, AddedTextsAreAConflictAsAWhole) {
  EXPECT_THAT(Merge("", "a\n", "b\n").conflicts,
              ElementsAre(TextConflict{"", "a\n", "b\n", {0, 0}, {0, 1}, {0, 1}}));
}

TEST(MergeText, BinaryContentIsMergedOnlyIfOneSideChangedIt) {
  const std::string binary("a\0b", 3);
  EXPECT_EQ(CleanText(binary, binary, "c\n"), "c\n");
  EXPECT_EQ(CleanText("c\n", binary, "c\n"), binary);
  EXPECT_EQ(CleanText("c\n", binary, binary), binary);
  for (const auto& result : {MergeText(binary, "a\n", "b\n"), MergeText("a\n", binary, "b\n"),
                             MergeText("a\n", "b\n", binary)}) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, ErrorCode::Unsupported);
    EXPECT_THAT(result.error().message, HasSubstr("binary"));
  }
}

/// The texts of all lists of up to three lines of two kinds.
std::vector<std::string> AllSmallTexts() {
  std::vector<std::string> texts{""};
  for (std::size_t i = 0; texts[i].size() < 6; ++i) {
    for (const char* line : {"a\n", "b\n"}) texts.push_back(texts[i] + line);
  }
  return texts;
}

TEST(MergeText, OneChangedSideWinsForAllSmallTexts) {
  for (const std::string& root : AllSmallTexts()) {
    for (const std::string& side : AllSmallTexts()) {
      ASSERT_EQ(CleanText(root, side, root), side);
      ASSERT_EQ(CleanText(root, root, side), side);
      ASSERT_EQ(CleanText(root, side, side), side);
    }
  }
}

void ExpectSymmetric(const std::string& root, const std::string& left, const std::string& right) {
  const TextMerge merge = Merge(root, left, right);
  TextMerge other = Merge(root, right, left, {.conflictText = ConflictText::Right});
  ASSERT_EQ(other.text, merge.text);
  for (TextConflict& conflict : other.conflicts) {
    std::swap(conflict.left, conflict.right);
    std::swap(conflict.leftLines, conflict.rightLines);
  }
  ASSERT_EQ(other.conflicts, merge.conflicts);
}

/// The conflicts' lines must be those at their places, in all three texts.
void ExpectPlaces(const std::string& root, const std::string& left, const std::string& right) {
  const auto cut = [](const std::string& text, const LineRange& range) {
    std::string part;
    const auto lines = SplitLines(text);
    for (std::size_t i = 0; i < range.count; ++i) part += lines.at(range.first + i);
    return part;
  };
  for (const TextConflict& conflict : Merge(root, left, right).conflicts) {
    ASSERT_EQ(cut(root, conflict.rootLines), conflict.root);
    ASSERT_EQ(cut(left, conflict.leftLines), conflict.left);
    ASSERT_EQ(cut(right, conflict.rightLines), conflict.right);
    ASSERT_NE(conflict.left, conflict.right);
  }
}

TEST(MergeText, IsSymmetricForAllSmallTexts) {
  const std::vector<std::string> texts = AllSmallTexts();
  for (const std::string& root : texts) {
    for (const std::string& left : texts) {
      for (const std::string& right : texts) {
        ExpectSymmetric(root, left, right);
        ExpectPlaces(root, left, right);
      }
    }
  }
}

TEST(MergeText, IsSymmetricForGeneratedTexts) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    GeneratedTexts texts(seed);
    const std::string root = texts.Text(texts.Below(30), 5);
    const std::string left = texts.Text(texts.Below(30), 5);
    const std::string right = texts.Text(texts.Below(30), 5);
    ExpectSymmetric(root, left, right);
    ExpectPlaces(root, left, right);
  }
}

/// A root of three parts and three sides, each of which changes one part. A line that no side
/// changes follows each part.
struct ThreeSides {
  explicit ThreeSides(GeneratedTexts& texts) {
    std::vector<std::string> parts(3);
    std::vector<std::string> changed(3);
    for (std::size_t i = 0; i < 3; ++i) {
      const std::vector<std::string> lines = texts.NewLines(2 + texts.Below(8));
      const std::string end = texts.NewLine();
      parts[i] = Joined(lines) + end;
      changed[i] = Joined(texts.Edited(lines, 1 + texts.Below(3))) + end;
    }
    root = Joined(parts);
    sides = {changed[0] + parts[1] + parts[2], parts[0] + changed[1] + parts[2],
             parts[0] + parts[1] + changed[2]};
    merged = Joined(changed);
  }

  std::string root;
  std::vector<std::string> sides;
  std::string merged;
};

TEST(MergeText, IsAssociativeForSeparateChanges) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    GeneratedTexts texts(seed);
    const ThreeSides three(texts);
    const std::string& root = three.root;
    const std::string first = CleanText(root, three.sides[0], three.sides[1]);
    const std::string last = CleanText(root, three.sides[1], three.sides[2]);
    ASSERT_EQ(CleanText(root, first, three.sides[2]), three.merged);
    ASSERT_EQ(CleanText(root, three.sides[0], last), three.merged);
    // What was merged before changes nothing: both sides have it in the same way.
    ASSERT_EQ(CleanText(root, first, last), three.merged);
    ASSERT_EQ(CleanText(root, three.merged, three.sides[1]), three.merged);
  }
}

}  // namespace
}  // namespace TalVcs::Kit
