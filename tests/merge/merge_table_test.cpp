// Every pattern that one entry can have in the three trees of a merge, against the table in
// merge_table.txt, which docs/merging.md explains and shows.

#include <talvcs/merge/three_way_merge.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/merging.h>

#include <array>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

struct Row {
  std::array<std::string, 3> sides;    // root, left, right
  std::array<std::string, 3> results;  // when every answer is left, right, root
  std::vector<std::string> asked;
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(std::string(TALVCS_SOURCE_DIR) + "/" + path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<Row> ReadTable() {
  std::istringstream table(ReadFile("tests/merge/merge_table.txt"));
  std::vector<Row> rows;
  std::string line;
  std::getline(table, line);
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream words(line);
    Row row;
    std::string bar;
    for (std::string& side : row.sides) words >> side;
    words >> bar;
    for (std::string& result : row.results) words >> result;
    words >> bar;
    for (std::string word; words >> word;) {
      if (word != "-") row.asked.push_back(word);
    }
    rows.push_back(row);
  }
  return rows;
}

// Renames contents by order of appearance, so that patterns compare equal.
std::string PatternOf(const Row& row, bool withKinds) {
  std::string pattern;
  std::string met;
  for (const std::string& side : row.sides) {
    if (side == "-") {
      pattern += '-';
      continue;
    }
    if (met.find(side) == std::string::npos) met += side;
    const bool isBlob = side[0] >= 'a';
    pattern += static_cast<char>((isBlob || !withKinds ? 'a' : 'A') + met.find(side));
  }
  return pattern;
}

std::set<std::string> PatternsOf(const std::vector<Row>& rows, bool withKinds) {
  std::set<std::string> patterns;
  for (const Row& row : rows) patterns.insert(PatternOf(row, withKinds));
  return patterns;
}

enum class Siblings { None, OfEachSide };

// One of the three trees: the entry "e" below `directory`, and entries beside it that keep both
// sides different from each other.
cow_ptr<Tree> TreeWith(IRepository& repository, const std::string& directory,
                       const std::string& entry, const std::string& sibling) {
  Tree tree = TreeOf(&repository, {{directory + "keep", "keep"}});
  if (!sibling.empty()) tree.AddBlob(&repository, Wide(directory + sibling), BlobOf(sibling));
  if (entry != "-") {
    const std::string path = directory + (entry[0] >= 'a' ? "e" : "e/in");
    tree.AddBlob(&repository, Wide(path), BlobOf(entry));
  }
  return Make<Tree>(tree);
}

// Shows what stands under "e": "-", "a", "A", "{}", or "b+A" for a blob that hides a directory.
std::string ShowEntry(const Tree& level) {
  const cow_ptr<Blob> blob = level.GetLocalBlob(TAL_WIDE("e"));
  const cow_ptr<Tree> tree = level.GetLocalTree(TAL_WIDE("e"));
  std::string shown = blob ? TextOf(blob) : "";
  if (blob && tree) shown += '+';
  if (tree) shown += tree->IsEmpty() ? "{}" : TextOf(tree->GetLocalBlob(TAL_WIDE("in")));
  return shown.empty() ? "-" : shown;
}

struct Situation {
  std::string directory;  // "" or "x/y/"
  bool swapped;
  Siblings siblings;
};

// Merges one row in one situation and one answer; checks entry, neighbours, questions and inputs.
void CheckRow(const Row& row, const Situation& situation, ConflictChoice answer) {
  Repository repository = NewRepository();
  const bool beside = situation.siblings == Siblings::OfEachSide;
  const std::size_t leftSide = situation.swapped ? 2 : 1;
  const MergeTrees trees{
      TreeWith(repository, situation.directory, row.sides[leftSide], beside ? "l" : ""),
      TreeWith(repository, situation.directory, row.sides[0], ""),
      TreeWith(repository, situation.directory, row.sides[3 - leftSide], beside ? "r" : "")};
  const std::string before = IdOf(trees.left) + IdOf(trees.root) + IdOf(trees.right);
  Questions questions;

  const cow_ptr<Tree> merged = ThreeWayMerge(&repository, trees, questions.Noting(answer));

  EXPECT_EQ(IdOf(trees.left) + IdOf(trees.root) + IdOf(trees.right), before);
  std::vector<std::string> expectedQuestions;
  for (const std::string& path : row.asked) {
    expectedQuestions.push_back(situation.directory + path);
  }
  std::vector<std::string> askedOfEntry;
  for (const std::string& path : questions.asked) {
    if (path.starts_with(situation.directory + "e")) askedOfEntry.push_back(path);
  }
  bool blobAsked = false;
  for (const std::string& path : row.asked) blobAsked |= path.back() != '/';
  if (answer == ConflictChoice::Undecided && blobAsked) {
    EXPECT_FALSE(merged);
    return;
  }
  EXPECT_EQ(askedOfEntry, expectedQuestions);
  ASSERT_TRUE(merged);
  const cow_ptr<Tree> level =
      situation.directory.empty() ? merged : merged->GetDeepTree(Wide(situation.directory));
  ASSERT_TRUE(level);
  std::size_t column = static_cast<std::size_t>(answer);
  if (answer == ConflictChoice::Undecided) column = 0;
  if (situation.swapped && column < 2) column = 1 - column;
  std::string expected = row.results[column];
  // The id doesn't cover a hidden directory. Below the top, where merged trees are stored, a level
  // that equals a stored tree in what it shows becomes that tree, which hides nothing.
  if (!beside && !situation.directory.empty()) expected = expected.substr(0, expected.find('+'));
  EXPECT_EQ(ShowEntry(*level), expected);
  EXPECT_EQ(TextOf(level->GetLocalBlob(TAL_WIDE("keep"))), "keep");
  EXPECT_EQ(TextOf(level->GetLocalBlob(TAL_WIDE("l"))), beside ? "l" : "(none)");
  EXPECT_EQ(TextOf(level->GetLocalBlob(TAL_WIDE("r"))), beside ? "r" : "(none)");
}

void CheckTable(const std::string& directory, bool swapped) {
  for (const Row& row : ReadTable()) {
    for (const Siblings siblings : {Siblings::None, Siblings::OfEachSide}) {
      for (const ConflictChoice answer : {ConflictChoice::Left, ConflictChoice::Right,
                                          ConflictChoice::Root, ConflictChoice::Undecided}) {
        SCOPED_TRACE(row.sides[0] + ' ' + row.sides[1] + ' ' + row.sides[2] + ", answer " +
                     std::to_string(static_cast<int>(answer)));
        CheckRow(row, {directory, swapped, siblings}, answer);
      }
    }
  }
}

TEST(MergeTable, ContainsEveryPatternOnce) {
  const std::vector<Row> rows = ReadTable();
  EXPECT_EQ(rows.size(), 47u);
  EXPECT_EQ(PatternsOf(rows, false).size(), 15u);
  EXPECT_EQ(PatternsOf(rows, true).size(), 47u);
}

TEST(MergeTable, IsQuotedInTheDocument) {
  const std::string table = ReadFile("tests/merge/merge_table.txt");
  ASSERT_FALSE(table.empty());
  EXPECT_NE(ReadFile("docs/merging.md").find("\n```\n" + table + "```\n"), std::string::npos);
}

TEST(MergeTable, IsTrueAtTheTop) { CheckTable("", false); }
TEST(MergeTable, IsTrueAtTheTopWithSidesExchanged) { CheckTable("", true); }
TEST(MergeTable, IsTrueTwoLevelsDown) { CheckTable("x/y/", false); }
TEST(MergeTable, IsTrueTwoLevelsDownWithSidesExchanged) { CheckTable("x/y/", true); }

}  // namespace
}  // namespace TalVcs::Testing
