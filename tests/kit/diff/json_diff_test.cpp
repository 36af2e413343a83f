#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/diff/json_diff.h>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Kind = JsonChangeKind;

std::vector<JsonChange> Diff(std::string_view before, std::string_view after,
                             const JsonArrayOptions& options = {}) {
  return DiffJson(before, after, options).value();
}

TEST(DiffJson, ListsMembersThatDiffer) {
  EXPECT_THAT(Diff(R"({"a": 1, "b": {"c": "x", "d": [1]}, "e": null})",
                   R"({"new": true, "b": {"c": "y", "d": [1]}, "a": 1})"),
              ElementsAre(JsonChange{Kind::Added, "/new", "", "true"},
                          JsonChange{Kind::Changed, "/b/c", R"("x")", R"("y")"},
                          JsonChange{Kind::Removed, "/e", "null", ""}));
}

TEST(DiffJson, IgnoresOrderOfMembersBlanksAndEscapes) {
  EXPECT_THAT(Diff("{\"a\":[1,{\"x\":0,\"y\":\"\\u00e9\\ud83d\\ude00\\/\"}],\"b\":2}",
                   " {\r\n\t\"b\" : 2 , \"\\u0061\" : [ 1 , "
                   "{ \"y\" : \"\xC3\xA9\xF0\x9F\x98\x80/\", \"x\" : 0 } ] } "),
              IsEmpty());
}

TEST(DiffJson, ComparesNumbersByTheirText) {
  EXPECT_THAT(Diff("[1]", "[1.0]"), ElementsAre(JsonChange{Kind::Changed, "", "[1]", "[1.0]"}));
  EXPECT_THAT(Diff("-0.10E+05", "-0.10E+05"), IsEmpty());
  EXPECT_THAT(Diff("123456789012345678901234567890", "123456789012345678901234567891"),
              ElementsAre(JsonChange{Kind::Changed, "", "123456789012345678901234567890",
                                     "123456789012345678901234567891"}));
}

TEST(DiffJson, EscapesPointers) {
  EXPECT_THAT(Diff(R"({"a/b": {"~": 1, "": 2}})", R"({"a/b": {"~": 2, "": 3}})"),
              ElementsAre(JsonChange{Kind::Changed, "/a~1b/~0", "1", "2"},
                          JsonChange{Kind::Changed, "/a~1b/", "2", "3"}));
}

TEST(DiffJson, ComparesArraysByIdentity) {
  EXPECT_THAT(Diff(R"([{"id": 1, "x": 0}, {"id": "1", "x": 0}, {"id": 2}])",
                   R"([{"id": 3}, {"id": 1, "x": 0}, {"id": "1", "x": 5}])"),
              ElementsAre(JsonChange{Kind::Added, "/0", "", R"({"id":3})"},
                          JsonChange{Kind::Changed, "/2/x", "0", "5"},
                          JsonChange{Kind::Removed, "/2", R"({"id":2})", ""}));
}

TEST(DiffJson, ReportsReorderedArrays) {
  EXPECT_THAT(Diff(R"({"s": [{"id": 1}, {"id": 2}]})", R"({"s": [{"id": 2}, {"id": 1, "x": 0}]})"),
              ElementsAre(JsonChange{Kind::Reordered, "/s", R"([{"id":1},{"id":2}])",
                                     R"([{"id":2},{"id":1,"x":0}])"},
                          JsonChange{Kind::Added, "/s/1/x", "", "0"}));
}

TEST(DiffJson, ArrayWithoutIdentityIsOneValue) {
  const auto is_one_value = [](std::string_view before, std::string_view after,
                               const JsonArrayOptions& options = {}) {
    const std::vector<JsonChange> changes = Diff(before, after, options);
    return changes.size() == 1 && changes[0].kind == Kind::Changed && changes[0].pointer.empty();
  };
  EXPECT_TRUE(is_one_value(R"([{"id": 1}, {"id": 1}])", R"([{"id": 1}])"));
  EXPECT_TRUE(is_one_value(R"([{"id": 1}, {}])", R"([{"id": 1}])"));
  EXPECT_TRUE(is_one_value(R"([{"id": true}])", R"([{"id": 1}])"));
  EXPECT_TRUE(is_one_value(R"([1])", R"([{"id": 1}])"));
  EXPECT_TRUE(is_one_value(R"([{"id": 1}])", R"([{"id": 2}])", {.identityMembers = {}}));
  EXPECT_FALSE(is_one_value(R"([{"id": 1}])", R"([{"id": 2}])"));
}

TEST(DiffJson, TakesTheFirstIdentityThatFits) {
  EXPECT_THAT(Diff(R"([{"key": "a", "name": "x"}, {"key": "a", "name": "y"}])",
                   R"([{"key": "a", "name": "y"}])", {.identityMembers = {"key", "name"}}),
              ElementsAre(JsonChange{Kind::Removed, "/0", R"({"key":"a","name":"x"})", ""}));
}

TEST(DiffJson, ReadsEveryKindOfValue) {
  EXPECT_THAT(
      Diff("null", "[null,true,false,0,-1.5e-7,\"\",[],{}]"),
      ElementsAre(JsonChange{Kind::Changed, "", "null", "[null,true,false,0,-1.5e-7,\"\",[],{}]"}));
}

struct BadDocument {
  std::string text;
  std::string message;
};

TEST(DiffJson, RefusesWhatIsNotJson) {
  const BadDocument documents[] = {
      {"", "line 1, column 1: expected a value"},
      {" \n ", "line 2, column 2: expected a value"},
      {"{} x", "column 4: expected the end of the document"},
      {"nul", "expected a value"},
      {"+1", "expected a value"},
      {"01", "column 2: expected the end of the document"},
      {"-", "column 2: expected a digit"},
      {"1.", "column 3: expected a digit"},
      {"1e+", "column 4: expected a digit"},
      {".5", "expected a value"},
      {"[1,]", "column 4: expected a value"},
      {"[1 2]", "column 4: expected ',' or ']'"},
      {"[", "column 2: expected a value"},
      {"{1:2}", "expected the name of a member"},
      {"{\"a\" 2}", "expected ':'"},
      {"{\"a\":1,}", "expected the name of a member"},
      {"{\"a\":1", "expected ',' or '}'"},
      {"\"abc", "a string has no end"},
      {"\"a\nb\"", "a string has a control character"},
      {std::string("\"a\0b\"", 5), "a string has a control character"},
      {R"("\x")", "unknown escape"},
      {R"("\)", "unknown escape"},
      {R"("\u12G4")", "expected a hexadecimal digit"},
      {R"("\ud800")", "half of a surrogate pair"},
      {R"("\ud800\u0041")", "half of a surrogate pair"},
      {R"("\udc00")", "half of a surrogate pair"},
      {R"({"a": 1, "\u0061": 2})", "has two members \"\\u0061\""},
      {"{\"a\": {\n\"b\": tru}}", "line 2, column 6: expected a value"},
      {std::string("1\0", 2), "expected the end of the document"},
  };
  for (const BadDocument& document : documents) {
    const auto result = DiffJson("1", document.text);
    ASSERT_FALSE(result) << document.text;
    EXPECT_EQ(result.error().code, ErrorCode::Damaged) << document.text;
    EXPECT_EQ(result.error().subject, "after");
    EXPECT_THAT(result.error().message, HasSubstr(document.message)) << document.text;
  }
  EXPECT_EQ(DiffJson("[", "1").error().subject, "before");
}

TEST(DiffJson, RefusesWhatIsNotUtf8) {
  const std::string bad[] = {"\x80",
                             "\xC0\xAF",
                             "\xC3",
                             "\xE0\x9F\xBF",
                             "\xED\xA0\x80",
                             "\xF0\x8F\xBF\xBF",
                             "\xF4\x90\x80\x80",
                             "\xF5\x80\x80\x80",
                             "\xE2\x82",
                             "\xF0\x9F\x98",
                             "\xE2\x28\xA1"};
  for (const std::string& bytes : bad) {
    const auto result = DiffJson("[\"ab" + bytes + "\"]", "1");
    ASSERT_FALSE(result) << testing::PrintToString(bytes);
    EXPECT_EQ(result.error().code, ErrorCode::BadText) << testing::PrintToString(bytes);
    EXPECT_THAT(result.error().message, HasSubstr("offset 4 "));
  }
  EXPECT_EQ(DiffJson("\xFF", "1").error().code, ErrorCode::BadText);
  // A byte order mark is UTF-8, but no JSON.
  EXPECT_EQ(DiffJson("\xEF\xBB\xBF{}", "1").error().code, ErrorCode::Damaged);
}

TEST(DiffJson, KeepsTheLimitsOfUtf8) {
  for (const std::string text : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                                 "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\x7F"}) {
    EXPECT_THAT(Diff('"' + text + '"', '"' + text + '"'), IsEmpty());
  }
  EXPECT_THAT(Diff(R"("\u0080\u07ff\u0800\uffff\ud800\udc00\udbff\udfff")",
                   "\"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\""),
              IsEmpty());
  EXPECT_THAT(
      Diff(R"("\b\f\n\r\t\"\\\/")", R"("\u0008\u000c\u000A\u000D\u0009\u0022\u005C\u002F")"),
      IsEmpty());
}

TEST(DiffJson, ReadsUpTo256Levels) {
  const auto nested = [](std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
  };
  EXPECT_TRUE(DiffJson(nested(256), "{}"));
  const auto result = DiffJson(nested(257), "{}");
  ASSERT_FALSE(result);
  EXPECT_THAT(result.error().message, HasSubstr("column 257: there are more than 256 levels"));
  const auto nested_objects = [](std::size_t levels) {
    std::string text;
    for (std::size_t i = 0; i < levels; ++i) text += "{\"\":";
    return text + "0" + std::string(levels, '}');
  };
  EXPECT_TRUE(DiffJson(nested_objects(256), "{}"));
  EXPECT_FALSE(DiffJson(nested_objects(257), "{}"));
  EXPECT_FALSE(DiffJson(std::string(1'000'000, '['), "{}"));
}

TEST(DiffJson, ManyMembersAndElementsTakeLinearTime) {
  std::string before = "{";
  std::string array = "[";
  for (int i = 0; i < 50'000; ++i) {
    before += "\"m" + std::to_string(i) + "\":0,";
    array += "{\"id\":" + std::to_string(i) + "},";
  }
  before += "\"list\":" + array + "{\"id\":\"last\"}]";
  EXPECT_THAT(Diff(before + "}", before + ",\"end\":1}"),
              ElementsAre(JsonChange{Kind::Added, "/end", "", "1"}));
}

}  // namespace
}  // namespace TalVcs::Kit
