#include <talvcs/foundation/cow_ptr.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <memory>
#include <type_traits>
#include <utility>

namespace TalVcs::Testing {
namespace {

static_assert(std::is_same_v<decltype(std::declval<cow_ptr<Tree>&>().get()), const Tree*>);
static_assert(std::is_same_v<decltype(*std::declval<cow_ptr<Tree>&>()), const Tree&>);
static_assert(!std::is_convertible_v<cow_ptr<Object>, cow_ptr<Tree>>);
static_assert(!std::is_convertible_v<cow_ptr<Blob>, cow_ptr<Tree>>);

TEST(CowPtr, DefaultIsNull) {
  const cow_ptr<Tree> null;
  EXPECT_FALSE(static_cast<bool>(null));
  EXPECT_EQ(null.get(), nullptr);
  EXPECT_EQ(null.use_count(), 0);
  EXPECT_TRUE(null == nullptr);
  EXPECT_TRUE(null == cow_ptr<Tree>());
}

TEST(CowPtr, OfSharedPointerTakesItOver) {
  std::shared_ptr<Tree> shared = dll_wrapped_shared(std::make_unique<Tree>());
  const Tree* const address = shared.get();
  const cow_ptr<Tree> tree(std::move(shared));
  EXPECT_EQ(tree.get(), address);
  EXPECT_EQ(tree.use_count(), 1);
  EXPECT_TRUE(tree != nullptr);
}

TEST(CowPtr, OfEmptySharedPointerIsNull) {
  const cow_ptr<Tree> tree{std::shared_ptr<Tree>()};
  EXPECT_FALSE(static_cast<bool>(tree));
  EXPECT_EQ(tree.use_count(), 0);
}

TEST(CowPtr, CopySharesTheObject) {
  const auto first = Make<Tree>();
  const cow_ptr<Tree> second(first);
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(first.use_count(), 2);
  EXPECT_TRUE(first == second);
}

TEST(CowPtr, AssignmentReleasesWhatTheTargetHeld) {
  const auto old = Make<Tree>();
  const auto other = Make<Tree>();
  cow_ptr<Tree> target = old;
  target = other;
  EXPECT_EQ(old.use_count(), 1);
  EXPECT_EQ(other.use_count(), 2);
  cow_ptr<Tree>& self = target;
  target = self;
  EXPECT_EQ(other.use_count(), 2);
}

TEST(CowPtr, MoveLeavesTheSourceNull) {
  auto source = Make<Tree>();
  const Tree* const address = source.get();
  cow_ptr<Tree> target(std::move(source));
  EXPECT_EQ(source.get(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.use_count(), 0);
  EXPECT_EQ(target.get(), address);
  source = std::move(target);
  EXPECT_EQ(target.get(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.use_count(), 1);
}

TEST(CowPtr, EqualityIsThatOfTheInstance) {
  const auto first = SharedBlob("same");
  const auto second = SharedBlob("same");
  EXPECT_TRUE(*first == *second);
  EXPECT_FALSE(first == second);
  EXPECT_TRUE(first != second);
  EXPECT_TRUE(cow_ptr<Blob>(first) == first);
}

TEST(CowPtr, ConvertsToObjectByAShareOfTheSameCount) {
  const auto blob = SharedBlob("x");
  const auto tree = Make<Tree>();
  const auto commit = Make<Commit>();
  const cow_ptr<Object> of_blob = blob;
  const cow_ptr<Object> of_tree = tree;
  const cow_ptr<Object> of_commit = commit;
  EXPECT_EQ(blob.use_count(), 2);
  EXPECT_EQ(of_tree.use_count(), 2);
  EXPECT_EQ(of_commit.get(), commit.get());
}

TEST(CowPtr, MoveToObjectLeavesTheSourceNull) {
  auto blob = SharedBlob("x");
  const cow_ptr<Object> object = std::move(blob);
  EXPECT_EQ(object.use_count(), 1);
  EXPECT_EQ(blob.get(), nullptr);  // NOLINT(bugprone-use-after-move)
}

TEST(CowPtr, ReadingNeverCopies) {
  auto tree = Make<Tree>();
  const cow_ptr<Tree> other = tree;
  EXPECT_TRUE(tree->IsEmpty());
  EXPECT_TRUE((*tree).IsEmpty());
  EXPECT_EQ(tree.get(), other.get());
  EXPECT_EQ(tree.use_count(), 2);
}

TEST(CowPtrWrite, OnNullGivesANewEmptyObject) {
  cow_ptr<Tree> tree;
  const Tree* const written = tree.write();
  EXPECT_NE(written, nullptr);
  EXPECT_EQ(tree.get(), written);
  EXPECT_TRUE(tree->IsEmpty());
  EXPECT_EQ(tree.use_count(), 1);
}

TEST(CowPtrWrite, OnSoleHandleKeepsTheObject) {
  auto tree = Make<Tree>();
  const Tree* const address = tree.get();
  EXPECT_EQ(tree.write(), address);
  EXPECT_EQ(tree.get(), address);
}

TEST(CowPtrWrite, OnSharedHandleGivesACopyAndReleasesTheOld) {
  auto writer = Make<Tree>();
  const cow_ptr<Tree> other = writer;
  const Tree* const address = other.get();
  EXPECT_NE(writer.write(), address);
  EXPECT_EQ(other.get(), address);
  EXPECT_EQ(other.use_count(), 1);
  EXPECT_EQ(writer.use_count(), 1);
}

TEST(CowPtrWrite, CopyStartsWithTheContentAndId) {
  auto writer = Make<Commit>();
  writer.write()->SetDescription(TAL_WIDE("first"));
  const cow_ptr<Commit> other = writer;
  writer.write()->SetDescription(TAL_WIDE("second"));
  EXPECT_EQ(Ascii(other->GetDesciption()), "first");
  EXPECT_EQ(Ascii(writer->GetDesciption()), "second");
}

TEST(CowPtrWrite, CopyIsOneLevelDeep) {
  auto parent = Make<Commit>();
  auto writer = Make<Commit>(parent, false);
  const cow_ptr<Commit> other = writer;
  writer.write();
  EXPECT_EQ(parent.use_count(), 3);
  EXPECT_TRUE(writer->GetParent() == other->GetParent());
}

TEST(CowPtrWrite, WorksForEachClassOfTheModel) {
  cow_ptr<Blob> blob;
  cow_ptr<Commit> commit;
  cow_ptr<CommitTree> commit_tree;
  EXPECT_EQ(blob.write()->GetData().GetSize(), 0U);
  EXPECT_EQ(commit.write()->GetParent().get(), nullptr);
  EXPECT_TRUE(commit_tree.write()->IsEmpty());
}

TEST(CowPtr, LastHandleOnTheBaseDeletesTheWholeObject) {
  class Noisy final : public Blob {
   public:
    explicit Noisy(bool& died) : m_died(died) {}
    ~Noisy() override { m_died = true; }

   private:
    bool& m_died;
  };
  bool died = false;
  {
    auto owner = std::make_unique<Noisy>(died);
    const cow_ptr<Object> object(dll_wrapped_shared(std::unique_ptr<Object>(std::move(owner))));
    EXPECT_FALSE(died);
  }
  EXPECT_TRUE(died);
}

TEST(CowPtr, AsGivesAHandleOnTheDerivedClass) {
  const auto blob = SharedBlob("x");
  const cow_ptr<Object> object = blob;
  EXPECT_TRUE(object.as<Blob>() == blob);
  EXPECT_FALSE(static_cast<bool>(cow_ptr<Object>().as<Blob>()));
}

}  // namespace
}  // namespace TalVcs::Testing
