#include <talvcs/objects/dll_wrapped_shared.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <memory>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Commits = std::vector<cow_ptr<Commit>>;

/// Wraps an object and looks whether it went over whole.
template <class T>
void ExpectTakenOver() {
  auto object = std::make_unique<T>();
  const T* const address = object.get();
  const std::shared_ptr<T> shared = dll_wrapped_shared(std::move(object));
  EXPECT_EQ(shared.get(), address);
  EXPECT_EQ(shared.use_count(), 1);
  EXPECT_EQ(object, nullptr);  // NOLINT(bugprone-use-after-move)
}

/// Wraps nothing and looks whether nothing came out.
template <class T>
void ExpectEmpty() {
  const std::shared_ptr<T> shared = dll_wrapped_shared(std::unique_ptr<T>());
  EXPECT_EQ(shared, nullptr);
  EXPECT_EQ(shared.use_count(), 0);
}

TEST(DllWrappedShared, TakesOverObjectsOfEachType) {
  ExpectTakenOver<Blob>();
  ExpectTakenOver<Commit>();
  ExpectTakenOver<CommitTree>();
  ExpectTakenOver<Tree>();
  ExpectTakenOver<Commits>();
}

TEST(DllWrappedShared, OfNullIsNull) {
  ExpectEmpty<Blob>();
  ExpectEmpty<Commit>();
  ExpectEmpty<CommitTree>();
  ExpectEmpty<Object>();
  ExpectEmpty<Tree>();
  ExpectEmpty<Commits>();
}

TEST(DllWrappedShared, AcceptsAnObjectOfAnyClass) {
  std::unique_ptr<Object> object = std::make_unique<Blob>(BufferOf("hello"));
  const std::shared_ptr<Object> shared = dll_wrapped_shared(std::move(object));
  EXPECT_EQ(IdOf(*shared), "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60");
}

TEST(DllWrappedShared, ListOfCommitsIsShared) {
  const auto commit = Make<Commit>();
  const auto shared = dll_wrapped_shared(std::make_unique<Commits>(3, commit));
  EXPECT_EQ(shared->size(), 3U);
  EXPECT_EQ(commit.use_count(), 4);
}

}  // namespace
}  // namespace TalVcs::Testing
