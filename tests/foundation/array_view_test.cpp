#include <talvcs/foundation/array_view.h>

#include <gtest/gtest.h>

#include <vector>

namespace TalVcs::Testing {
namespace {

using TalUtils::array_view;

std::vector<int> Elements(array_view<const int> view) { return {view.begin(), view.end()}; }

TEST(ArrayView, DefaultIsEmpty) {
  const array_view<const int> view;
  EXPECT_TRUE(view.empty());
  EXPECT_EQ(view.size(), 0U);
}

TEST(ArrayView, OfPointersContainsTheElementsBetween) {
  const int numbers[] = {1, 2, 3, 4};
  const array_view<const int> view(numbers + 1, numbers + 3);
  EXPECT_EQ(Elements(view), (std::vector<int>{2, 3}));
  EXPECT_EQ(view.back(), 3);
  EXPECT_EQ(view[0], 2);
  EXPECT_FALSE(view.empty());
}

TEST(ArrayView, OfVectorContainsAllElements) {
  const std::vector<int> numbers{1, 2, 3};
  const array_view<const int> view = numbers;
  EXPECT_EQ(view.begin(), numbers.data());
  EXPECT_EQ(view.size(), 3U);
  const std::vector<int> none;
  EXPECT_TRUE(array_view<const int>(none).empty());
}

TEST(ArrayView, OfMutableElementsChangesThem) {
  std::vector<int> numbers{1, 2, 3};
  const array_view<int> view = numbers;
  view.back() = 7;
  EXPECT_EQ(numbers[2], 7);
}

TEST(ArrayView, LastAndWithoutLastSplitTheView) {
  const std::vector<int> numbers{1, 2, 3, 4, 5};
  const array_view<const int> view = numbers;
  EXPECT_EQ(Elements(view.last(2)), (std::vector<int>{4, 5}));
  EXPECT_EQ(Elements(view.without_last(2)), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(view.last(0).empty());
  EXPECT_EQ(view.without_last(0).size(), 5U);
}

TEST(ArrayView, LastOfTooManyIsTheWholeView) {
  const std::vector<int> numbers{1, 2, 3};
  const array_view<const int> view = numbers;
  EXPECT_EQ(Elements(view.last(4)), numbers);
  EXPECT_EQ(Elements(view.last(3)), numbers);
  EXPECT_EQ(Elements(view.last(static_cast<std::size_t>(-1))), numbers);
}

TEST(ArrayView, WithoutTooManyIsEmpty) {
  const std::vector<int> numbers{1, 2, 3};
  const array_view<const int> view = numbers;
  EXPECT_TRUE(view.without_last(4).empty());
  EXPECT_TRUE(view.without_last(3).empty());
  EXPECT_TRUE(view.without_last(static_cast<std::size_t>(-1)).empty());
}

TEST(ArrayView, PartsOfTheEmptyViewAreEmpty) {
  const array_view<const int> view;
  EXPECT_TRUE(view.last(1).empty());
  EXPECT_TRUE(view.without_last(1).empty());
}

}  // namespace
}  // namespace TalVcs::Testing
