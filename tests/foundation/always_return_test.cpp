#include <talvcs/foundation/always_return.h>

#include <gtest/gtest.h>

#include <string>

namespace TalVcs::Testing {
namespace {

using TalUtils::always_return_t;

enum class Choice { None, Root, Left };

TEST(AlwaysReturn, ReturnsItsValueForAnyArguments) {
  const always_return_t<Choice> choose_left{Choice::Left};
  EXPECT_EQ(choose_left(), Choice::Left);
  EXPECT_EQ(choose_left(1, "two", std::string("three")), Choice::Left);
}

TEST(AlwaysReturn, ReturnsTheSameValueAgain) {
  const always_return_t<std::string> say{std::string("a text that is not short")};
  EXPECT_EQ(say(), "a text that is not short");
  EXPECT_EQ(say(), "a text that is not short");
}

}  // namespace
}  // namespace TalVcs::Testing
