#include <talvcs/foundation/delegate.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace TalVcs::Testing {
namespace {

using Appender = TalUtils::Delegate<std::size_t(const std::string&)>;

std::size_t AppendTo(void* object, const std::string& text) {
  auto& target = *static_cast<std::string*>(object);
  target += text;
  return target.size();
}

TEST(Delegate, WithBothWordsNullIsEmpty) {
  EXPECT_FALSE(static_cast<bool>(Appender()));
  EXPECT_FALSE(static_cast<bool>(Appender(nullptr, nullptr)));
}

TEST(Delegate, WithOneWordIsNotEmpty) {
  std::string target;
  EXPECT_TRUE(static_cast<bool>(Appender(&target, nullptr)));
  EXPECT_TRUE(static_cast<bool>(Appender(nullptr, &AppendTo)));
}

TEST(Delegate, PassesObjectAndArgumentsOn) {
  std::string target = "a";
  const Appender append(&target, &AppendTo);
  EXPECT_TRUE(static_cast<bool>(append));
  EXPECT_EQ(append("bc"), 3U);
  EXPECT_EQ(target, "abc");
}

TEST(Delegate, CopyCallsTheSameObject) {
  std::string target;
  const Appender append(&target, &AppendTo);
  const Appender copy = append;
  append("x");
  copy("y");
  EXPECT_EQ(target, "xy");
}

TEST(Delegate, TakesAndGivesWhatCanOnlyBeMoved) {
  using Number = std::unique_ptr<int>;
  const TalUtils::Delegate<Number(Number)> pass(
      nullptr, +[](void*, Number number) { return number; });
  EXPECT_EQ(*pass(std::make_unique<int>(7)), 7);
}

TEST(Delegate, IsTwoWords) { EXPECT_EQ(sizeof(Appender), 2 * sizeof(void*)); }

}  // namespace
}  // namespace TalVcs::Testing
