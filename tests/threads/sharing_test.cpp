#include <gtest/gtest.h>
#include <talvcs/objects/id.h>
#include <tests/support/contents.h>
#include <tests/support/objects.h>

#include <chrono>
#include <thread>

namespace TalVcs::Testing {
namespace {

constexpr int kTurns = 20'000;
constexpr char kLong[] = "a text that is too long for the object";

/// Runs `work` on two threads at once.
template <class Work>
void OnTwoThreads(Work work) {
  std::thread other(work);
  work();
  other.join();
}

TEST(SharingThreads, StringsShareTheirTextAcrossThreads) {
  const TalStringT<WideChar> text = Wide(kLong);
  OnTwoThreads([own = text] {
    for (int turn = 0; turn < kTurns; ++turn) {
      TalStringT<WideChar> copy(own);
      copy += TAL_WIDE('!');
      ASSERT_EQ(copy.GetLength(), own.GetLength() + 1);
    }
  });
  EXPECT_EQ(Ascii(text), kLong);
}

TEST(SharingThreads, BuffersShareTheirSegmentsAcrossThreads) {
  const Buffer bytes = BufferOfParts({"abc", "def"});
  OnTwoThreads([own = bytes] {
    for (int turn = 0; turn < kTurns; ++turn) {
      Buffer copy(own);
      copy.WriteAt(4, "X", 1);
      copy.Append(own);
      ASSERT_EQ(copy.GetSize(), 12U);
    }
  });
  EXPECT_EQ(Bytes(bytes), "abcdef");
}

TEST(SharingThreads, HandlesAreCopiedAndDroppedAcrossThreads) {
  const auto tree = Make<Tree>();
  OnTwoThreads([own = tree] {
    for (int turn = 0; turn < kTurns; ++turn) {
      cow_ptr<Tree> copy(own);
      const cow_ptr<Object> object = copy;
      ASSERT_NE(copy.write(), own.get());
    }
  });
  EXPECT_EQ(tree.use_count(), 1);
}

// What one thread has read of an object before it drops its handle, and another one frees after
// that, is in order.
TEST(SharingThreads, LastHandleFreesAnObjectThatAnotherThreadHasRead) {
  for (int turn = 0; turn < kTurns / 100; ++turn) {
    auto tree = Make<Tree>();
    {
      Repository repository = NewRepository();
      tree.write()->AddBlob(&repository, Wide("below/file"), BlobOf("x"));
    }
    auto commit = Make<Commit>();
    commit.write()->SetParent(Make<Commit>());
    std::thread reader([below = tree->GetLocalTree(Wide("below")), parent = commit->GetParent()] {
      EXPECT_EQ(below->GetLocalBlobCount(), 1U);
      EXPECT_FALSE(parent->GetParent());
    });
    if (turn % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
    tree = nullptr;
    commit = nullptr;
    reader.join();
  }
}

TEST(SharingThreads, IdsAreHashedAndComparedAcrossThreads) {
  const Id id(BufferOf("abc"));
  OnTwoThreads([own = id] {
    for (int turn = 0; turn < kTurns; ++turn) {
      const Id copy(own);
      ASSERT_TRUE(copy == own);
      ASSERT_EQ(copy.GetHash(), own.GetHash());
    }
  });
  EXPECT_EQ(id.View().length, 64);
}

}  // namespace
}  // namespace TalVcs::Testing
