#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/diff/blame.h>
#include <tests/kit/diff/generated_texts.h>

#include <map>

namespace TalVcs::Kit {
namespace {

using ::testing::ElementsAre;
using Testing::GeneratedTexts;
using ::testing::IsEmpty;

/// Yields these texts, the newest first, with the ids "v0", "v1" and so on; counts the calls.
class Versions {
 public:
  explicit Versions(std::vector<std::string> texts) : m_texts(std::move(texts)) {}

  NextOlderVersion Next() {
    return [this]() -> Result<std::optional<TextVersion>> {
      if (m_calls++ >= m_texts.size()) return std::optional<TextVersion>();
      return std::optional(TextVersion{"v" + std::to_string(m_calls - 1), m_texts[m_calls - 1]});
    };
  }
  std::size_t Calls() const { return m_calls; }

 private:
  std::vector<std::string> m_texts;
  std::size_t m_calls = 0;
};

TEST(BlameText, FindsTheVersionThatAddedEachLine) {
  Versions versions({"new\na\nB\nc\n", "a\nB\nc\n", "a\nb\nc\n", "a\nc\n"});
  const Blame blame = BlameText(versions.Next()).value();
  EXPECT_THAT(blame.lines, ElementsAre(BlamedLine{"new\n", 0, 0}, BlamedLine{"a\n", 3, 0},
                                       BlamedLine{"B\n", 1, 1}, BlamedLine{"c\n", 3, 1}));
  EXPECT_THAT(blame.versions, ElementsAre("v0", "v1", "v2", "v3"));
  EXPECT_TRUE(blame.isComplete);
}

TEST(BlameText, StopsWhenEachLineHasItsOrigin) {
  Versions versions({"a\nb\n", "a\n", "x\n", "y\n", "z\n"});
  EXPECT_THAT(BlameText(versions.Next()).value().lines,
              ElementsAre(BlamedLine{"a\n", 1, 0}, BlamedLine{"b\n", 0, 1}));
  EXPECT_EQ(versions.Calls(), 3U);
}

TEST(BlameText, LineThatWasRemovedMeanwhileIsNew) {
  Versions versions({"a\n", "b\n", "a\n"});
  EXPECT_THAT(BlameText(versions.Next()).value().lines, ElementsAre(BlamedLine{"a\n", 0, 0}));
}

TEST(BlameText, NoVersionHasNoLines) {
  Versions none({});
  EXPECT_THAT(BlameText(none.Next()).value().lines, IsEmpty());
  Versions empty({"", "a\n"});
  const Blame blame = BlameText(empty.Next()).value();
  EXPECT_THAT(blame.lines, IsEmpty());
  EXPECT_THAT(blame.versions, ElementsAre("v0"));
}

TEST(BlameText, BoundLeavesTheRestToTheLastVersionRead) {
  Versions versions({"a\nb\n", "a\n", "a\n", "a\n"});
  const Blame blame = BlameText(versions.Next(), {.mostVersions = 3}).value();
  EXPECT_THAT(blame.lines, ElementsAre(BlamedLine{"a\n", 2, 0}, BlamedLine{"b\n", 0, 1}));
  EXPECT_FALSE(blame.isComplete);
  EXPECT_EQ(versions.Calls(), 3U);
}

TEST(BlameText, BoundOfNoVersionIsIncomplete) {
  Versions versions({"a\n"});
  const Blame blame = BlameText(versions.Next(), {.mostVersions = 0}).value();
  EXPECT_THAT(blame.lines, IsEmpty());
  EXPECT_FALSE(blame.isComplete);
  EXPECT_EQ(versions.Calls(), 0U);
}

TEST(BlameText, PassesOnTheErrorOfTheCallback) {
  Error error;
  error.code = ErrorCode::Unavailable;
  error.message = "cannot read";
  const Result<Blame> blame =
      BlameText([&]() -> Result<std::optional<TextVersion>> { return error; });
  ASSERT_FALSE(blame);
  EXPECT_EQ(blame.error().message, "cannot read");
}

TEST(BlameText, EachCallOfProgressCanCancel) {
  std::size_t calls = 0;
  const auto run = [&](std::size_t last) {
    Versions versions({"a\nb\n", "a\n", "\n"});
    calls = 0;
    BlameOptions options;
    options.progress = [&](const ProgressStep& step) {
      EXPECT_EQ(step.phase, "versions");
      EXPECT_EQ(step.done, calls);
      return ++calls < last;
    };
    return BlameText(versions.Next(), options);
  };
  ASSERT_TRUE(run(100));
  const std::size_t all = calls;
  EXPECT_EQ(all, 4U);
  for (std::size_t last = 1; last <= all; ++last) {
    const Result<Blame> blame = run(last);
    ASSERT_FALSE(blame);
    EXPECT_EQ(blame.error().code, ErrorCode::Cancelled);
    EXPECT_EQ(calls, last);
  }
}

TEST(BlameText, AgreesWithTheHistoryThatWasGenerated) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    GeneratedTexts texts(seed);
    // No line is ever added twice, so that its origin is the oldest version that has it.
    std::vector<std::vector<std::string>> history{texts.NewLines(texts.Below(20))};
    for (int i = 0; i < 12; ++i) history.push_back(texts.Edited(history.back(), texts.Below(4)));
    std::map<std::string, std::size_t> origins;  // by age, 0 for the newest version
    for (std::size_t i = 0; i < history.size(); ++i) {
      for (const std::string& line : history[i]) origins.emplace(line, history.size() - 1 - i);
    }
    std::vector<std::string> newest_first;
    for (const auto& lines : history)
      newest_first.insert(newest_first.begin(), Testing::Joined(lines));
    Versions versions(newest_first);
    const Blame blame = BlameText(versions.Next()).value();
    ASSERT_EQ(blame.lines.size(), history.back().size());
    for (std::size_t i = 0; i < blame.lines.size(); ++i) {
      const BlamedLine& line = blame.lines[i];
      ASSERT_EQ(line.text, history.back()[i]);
      ASSERT_EQ(line.version, origins[line.text]);
      ASSERT_EQ(history[history.size() - 1 - line.version][line.line], line.text);
    }
  }
}

}  // namespace
}  // namespace TalVcs::Kit
