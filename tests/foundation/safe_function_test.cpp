#include <talvcs/foundation/safe_function.h>

#include <talvcs/merge/resolvers.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using Components = array_view<const TalStringViewT<WideChar>>;
using TimeGetter = basic_safe_function<std::optional<Time>(cow_ptr<Blob>), 1>;
using Number = basic_safe_function<int(int), 1>;

int Twice(int value) { return 2 * value; }

TEST(SafeFunction, DefaultIsEmpty) {
  EXPECT_FALSE(static_cast<bool>(Number()));
  EXPECT_TRUE(static_cast<bool>(Number(&Twice)));
}

TEST(SafeFunction, EmptyResolverGivesTheChoiceOfValueZero) {
  const ConflictResolver resolver;
  const TreeConflictResolver tree_resolver;
  EXPECT_EQ(static_cast<int>(resolver(Components(), MergeTrees())), 0);
  EXPECT_EQ(static_cast<int>(tree_resolver(Components(), MergeTrees())), 0);
}

TEST(SafeFunction, EmptyTimeGetterGivesNothing) { EXPECT_FALSE(TimeGetter()(nullptr).has_value()); }

TEST(SafeFunction, EmptyFunctionWithoutResultCanBeCalled) {
  const basic_safe_function<void(std::string)> function;
  EXPECT_NO_THROW(function("dropped"));
}

TEST(SafeFunction, CallsFunctionsLambdasAndFunctors) {
  EXPECT_EQ(Number(&Twice)(4), 8);
  EXPECT_EQ(Number(Twice)(4), 8);
  EXPECT_EQ(Number([](int value) { return value + 1; })(4), 5);
  EXPECT_EQ(Number(always_return_t<int>{9})(4), 9);
}

TEST(SafeFunction, OfNullFunctionPointerIsEmpty) {
  int (*none)(int) = nullptr;
  const Number function(none);
  EXPECT_FALSE(static_cast<bool>(function));
  EXPECT_EQ(function(4), 0);
}

TEST(SafeFunction, KeepsALargeTarget) {
  std::array<int, 100> table{};
  table[99] = 5;
  const Number function([table](int index) { return table[static_cast<std::size_t>(index)]; });
  const Number copy = function;
  EXPECT_EQ(function(99), 5);
  EXPECT_EQ(copy(99), 5);
}

TEST(SafeFunction, CopyHasATargetOfItsOwn) {
  int calls = 0;
  const auto count = [own = 0, &calls](int) mutable {
    ++calls;
    return ++own;
  };
  const Number function(count);
  function(0);
  const Number copy = function;
  EXPECT_EQ(function(0), 2);
  EXPECT_EQ(copy(0), 2);
  EXPECT_EQ(calls, 3);
}

TEST(SafeFunction, MovedFromIsEmpty) {
  Number source(&Twice);
  Number target(std::move(source));
  EXPECT_FALSE(static_cast<bool>(source));  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source(4), 0);
  EXPECT_EQ(target(4), 8);
  source = std::move(target);
  EXPECT_FALSE(static_cast<bool>(target));  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source(4), 8);
}

TEST(SafeFunction, SelfAssignmentKeepsTheTarget) {
  Number function(&Twice);
  Number& self = function;
  function = self;
  EXPECT_EQ(function(4), 8);
}

TEST(SafeFunction, DropsItsTargetWithItself) {
  const auto held = std::make_shared<int>(3);
  {
    const Number function([held](int) { return *held; });
    EXPECT_EQ(held.use_count(), 2);
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST(SafeFunction, PassesArgumentsThatCanOnlyBeMoved) {
  const basic_safe_function<int(std::unique_ptr<int>)> function(
      [](std::unique_ptr<int> value) { return *value; });
  EXPECT_EQ(function(std::make_unique<int>(6)), 6);
}

}  // namespace
}  // namespace TalVcs::Testing
