#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/merge/json_merge.h>

#include <random>
#include <utility>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Value = std::optional<std::string>;

JsonMerge Merge(std::string_view root, std::string_view left, std::string_view right,
                const JsonMergeOptions& options = {}) {
  return MergeJson(root, left, right, options).value();
}

/// Returns the text of a merge that must be clean, or "conflict".
std::string CleanText(std::string_view root, std::string_view left, std::string_view right) {
  JsonMerge merge = Merge(root, left, right);
  return merge.IsClean() ? merge.text : "conflict";
}

TEST(MergeJson, TakesChangesOfBothSides) {
  EXPECT_EQ(CleanText(R"({"a":1,"b":2,"c":3})", R"({"a":5,"b":2,"c":3})", R"({"a":1,"b":2})"),
            R"({"a":5,"b":2})");
  EXPECT_EQ(
      CleanText(R"({"o":{"x":1,"y":[1]}})", R"({"o":{"x":2,"y":[1]}})", R"({"o":{"x":1,"y":[2]}})"),
      R"({"o":{"x":2,"y":[2]}})");
}

TEST(MergeJson, TakesAChangeThatBothMadeOnce) {
  EXPECT_EQ(CleanText(R"({"a":1})", R"({"a":2,"x":0})", R"({"x":0,"a":2,"y":1})"),
            R"({"x":0,"a":2,"y":1})");
}

TEST(MergeJson, ReturnsTheTextOfASideThatHasTheOutcome) {
  EXPECT_EQ(CleanText("[1]", " [ 1 ] ", "[2] "), "[2] ");
  EXPECT_EQ(CleanText("[1]", "[2]  ", "[ 1]"), "[2]  ");
  EXPECT_EQ(CleanText("{\"a\":1}", "{ \"a\": 2 }\n", "{\"a\":2}"), "{ \"a\": 2 }\n");
}

TEST(MergeJson, AddedMemberFollowsItsPredecessor) {
  EXPECT_EQ(CleanText(R"({"a":1,"b":2})", R"({"b":2,"a":1,"l":0})",
                      R"({"r0":0,"a":1,"r1":1,"r2":2,"b":2})"),
            R"({"r0":0,"b":2,"a":1,"l":0,"r1":1,"r2":2})");
}

TEST(MergeJson, ListsEachConflict) {
  const JsonMerge merge =
      Merge(R"({"a":1,"b":{"c":"x"},"gone":1,"e":1})", R"({"a":2,"b":{"c":"y"},"e":1,"n":[1]})",
            R"({"a":3,"b":{"c":1.50},"gone":2,"e":4,"n":[2]})");
  EXPECT_EQ(merge.text, R"({"a":2,"b":{"c":"y"},"e":4,"n":[1]})");
  EXPECT_THAT(merge.conflicts, ElementsAre(JsonConflict{"/a", "1", "2", "3"},
                                           JsonConflict{"/b/c", "\"x\"", "\"y\"", "1.50"},
                                           JsonConflict{"/gone", "1", std::nullopt, "2"},
                                           JsonConflict{"/n", std::nullopt, "[1]", "[2]"}));
}

TEST(MergeJson, TakesTheSideOfTheOptionsForAConflict) {
  const auto text = [](MergeSide side) {
    return Merge(R"({"a":1,"b":1,"k":0})", R"({"a":2,"k":0})", R"({"a":3,"b":2,"k":1})",
                 {.conflictSide = side})
        .text;
  };
  EXPECT_EQ(text(MergeSide::Left), R"({"a":2,"k":1})");
  EXPECT_EQ(text(MergeSide::Right), R"({"a":3,"b":2,"k":1})");
  EXPECT_EQ(text(MergeSide::Root), R"({"a":1,"b":1,"k":1})");
}

TEST(MergeJson, MergesElementsByIdentity) {
  EXPECT_EQ(CleanText(R"([{"id":1,"x":0,"y":0},{"id":2},{"id":3}])",
                      R"([{"id":1,"x":5,"y":0},{"id":3},{"id":4}])",
                      R"([{"id":0},{"id":1,"x":0,"y":6},{"id":2},{"id":3}])"),
            R"([{"id":0},{"id":1,"x":5,"y":6},{"id":3},{"id":4}])");
}

TEST(MergeJson, ConflictInAnElementHasItsIndexInTheMergedArray) {
  const JsonMerge merge =
      Merge(R"([{"id":1,"x":0},{"id":2,"x":0}])", R"([{"id":0},{"id":1,"x":1}])",
            R"([{"id":1,"x":2},{"id":2,"x":3}])");
  EXPECT_EQ(merge.text, R"([{"id":0},{"id":1,"x":1}])");
  EXPECT_THAT(merge.conflicts, ElementsAre(JsonConflict{"/1/x", "0", "1", "2"},
                                           JsonConflict{"/-", R"({"id":2,"x":0})", std::nullopt,
                                                        R"({"id":2,"x":3})"}));
  EXPECT_EQ(
      Merge(R"([{"id":1,"x":0}])", "[]", R"([{"id":1,"x":3}])", {.conflictSide = MergeSide::Right})
          .conflicts[0]
          .pointer,
      "/0");
}

TEST(MergeJson, TakesTheOrderOfTheSideThatReordered) {
  constexpr std::string_view root = R"([{"id":1},{"id":2},{"id":3}])";
  EXPECT_EQ(
      CleanText(root, R"([{"id":1,"l":0},{"id":2},{"id":3}])", R"([{"id":3},{"id":1},{"id":2}])"),
      R"([{"id":3},{"id":1,"l":0},{"id":2}])");
  EXPECT_EQ(CleanText(root, R"([{"id":2},{"id":1},{"id":3}])", R"([{"id":3},{"id":2},{"id":1}])"),
            R"([{"id":2},{"id":1},{"id":3}])");
}

TEST(MergeJson, ArrayWithoutIdentityIsOneValue) {
  EXPECT_THAT(Merge(R"({"a":[1]})", R"({"a":[1,2]})", R"({"a":[0,1]})").conflicts,
              ElementsAre(JsonConflict{"/a", "[1]", "[1,2]", "[0,1]"}));
  EXPECT_THAT(
      Merge(R"([{"id":1}])", R"([{"id":1},{"id":1}])", R"([{"id":2}])").conflicts,
      ElementsAre(JsonConflict{"", R"([{"id":1}])", R"([{"id":1},{"id":1}])", R"([{"id":2}])"}));
  JsonMergeOptions by_name;
  by_name.arrays.identityMembers = {"name"};
  EXPECT_EQ(Merge(R"([{"name":"a"}])", R"([{"name":"a","x":1}])", R"([{"name":"a"},{"name":"b"}])",
                  by_name)
                .text,
            R"([{"name":"a","x":1},{"name":"b"}])");
}

TEST(MergeJson, RootOfAnotherKindCountsAsNone) {
  EXPECT_EQ(CleanText(R"({"a":1})", R"({"a":{"x":1}})", R"({"a":{"y":2}})"),
            R"({"a":{"x":1,"y":2}})");
  EXPECT_EQ(CleanText("null", R"([{"id":1}])", R"([{"id":2}])"), R"([{"id":1},{"id":2}])");
}

TEST(MergeJson, WritesIndentedDocumentsIndented) {
  EXPECT_EQ(CleanText("{\"a\":1,\"b\":{}}", "{\r\n\t\"a\": 2,\r\n\t\"b\": {}\r\n}\r\n",
                      "{\"a\":1,\"b\":{\"c\":[1,{}],\"d\":[]}}"),
            "{\r\n\t\"a\": 2,\r\n\t\"b\": {\r\n\t\t\"c\": [\r\n\t\t\t1,\r\n\t\t\t{}\r\n\t\t],\r\n"
            "\t\t\"d\": []\r\n\t}\r\n}\r\n");
  EXPECT_EQ(CleanText("{\"a\":1}", "{\n\"a\":1, \"b\":2}", "{\"a\":3}"),
            "{\n  \"a\": 3,\n  \"b\": 2\n}");
  EXPECT_EQ(CleanText("{\"a\":1}", "{\n\n    \"a\":1, \"b\":2}", "{\"a\":3}"),
            "{\n    \"a\": 3,\n    \"b\": 2\n}");
  EXPECT_EQ(CleanText("{\"a\":1}", "{\"a\":1, \"b\":2}\n", "{\"a\":3}"),
            "{\n  \"a\": 3,\n  \"b\": 2\n}\n");
}

TEST(MergeJson, KeepsTheSpellingOfNumbersAndStrings) {
  EXPECT_EQ(CleanText(R"({"a":1})", R"({"\u0061":1,"n":-1.50E+07})", R"({"a":1,"s":"\u00e9\/"})"),
            R"({"\u0061":1,"n":-1.50E+07,"s":"\u00e9\/"})");
}

TEST(MergeJson, NamesTheDocumentThatIsNoJson) {
  EXPECT_EQ(MergeJson("x", "1", "2").error().subject, "root");
  EXPECT_EQ(MergeJson("1", "x", "2").error().subject, "left");
  EXPECT_EQ(MergeJson("1", "2", "x").error().subject, "right");
  EXPECT_EQ(MergeJson("1", "\xFF", "2").error().code, ErrorCode::BadText);
  EXPECT_EQ(MergeAddedJson("x", "2").error().subject, "left");
}

TEST(MergeAddedJson, MergesWithoutARoot) {
  const JsonMerge merge = MergeAddedJson(R"({"a":1,"b":1})", R"({"a":1,"b":2,"c":3})").value();
  EXPECT_EQ(merge.text, R"({"a":1,"b":1,"c":3})");
  EXPECT_THAT(merge.conflicts, ElementsAre(JsonConflict{"/b", std::nullopt, "1", "2"}));
  EXPECT_EQ(MergeAddedJson("1", "1 ").value().text, "1");
}

TEST(MergeAddedJson, WholeDocumentsInConflictLeaveTheLeftOne) {
  for (const MergeSide side : {MergeSide::Left, MergeSide::Root}) {
    const JsonMerge merge = MergeAddedJson("1", "2", {.conflictSide = side}).value();
    EXPECT_EQ(merge.text, "1");
    EXPECT_THAT(merge.conflicts, ElementsAre(JsonConflict{"", std::nullopt, "1", "2"}));
  }
  EXPECT_EQ(MergeAddedJson("1", "2", {.conflictSide = MergeSide::Right}).value().text, "2");
}

/// Documents of few names and values, so that versions often agree.
class GeneratedJson {
 public:
  explicit GeneratedJson(unsigned seed) : m_random(seed) {}

  std::string Document() { return Value(0); }

 private:
  std::size_t Below(std::size_t bound) { return m_random() % bound; }

  std::string Value(int depth) {
    const std::size_t kind = depth == 0 ? 3 : depth < 3 ? Below(6) : Below(3);
    if (kind < 3) return std::to_string(kind);
    if (kind == 5) return Elements(depth);
    std::string text = "{";
    for (const char* name : {"a", "b", "c"}) {
      if (Below(3) == 0) continue;
      if (text.size() > 1) text += ',';
      text += '"' + std::string(name) + "\":" + Value(depth + 1);
    }
    return text + '}';
  }

  std::string Elements(int depth) {
    std::string text = "[";
    for (int id = 0; id < 3; ++id) {
      if (Below(3) == 0) continue;
      if (text.size() > 1) text += ',';
      text += "{\"id\":" + std::to_string(id) + ",\"v\":" + Value(depth + 1) + '}';
    }
    return text + ']';
  }

  std::mt19937 m_random;
};

bool SameValue(std::string_view a, std::string_view b) { return DiffJson(a, b).value().empty(); }

TEST(MergeJson, KeepsTheLawsOfMergingForGeneratedDocuments) {
  std::size_t clean = 0;
  for (unsigned seed = 0; seed < 2000; ++seed) {
    GeneratedJson generated(seed);
    const std::string root = generated.Document();
    const std::string left = generated.Document();
    const std::string right = generated.Document();
    ASSERT_EQ(CleanText(root, left, root), left);
    ASSERT_EQ(CleanText(root, left, left), left);
    ASSERT_TRUE(SameValue(CleanText(root, root, right), right));

    const JsonMerge merge = Merge(root, left, right);
    JsonMerge other = Merge(root, right, left, {.conflictSide = MergeSide::Right});
    for (JsonConflict& conflict : other.conflicts) std::swap(conflict.left, conflict.right);
    ASSERT_EQ(other.conflicts.size(), merge.conflicts.size());
    for (const JsonConflict& conflict : merge.conflicts) ASSERT_NE(conflict.left, conflict.right);
    if (!merge.IsClean()) continue;
    ++clean;
    // Merging once more changes nothing.
    ASSERT_TRUE(SameValue(CleanText(left, merge.text, left), merge.text));
    ASSERT_TRUE(SameValue(CleanText(root, merge.text, merge.text), merge.text));
  }
  EXPECT_GT(clean, 100U);
}

}  // namespace
}  // namespace TalVcs::Kit
