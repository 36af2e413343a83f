#include <gtest/gtest.h>
#include <kit/text.h>
#include <stores/postgres/internal/background_writes.h>

#include <atomic>
#include <chrono>
#include <new>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::Status;
using Kit::StoredObject;
using Kit::Postgres::BackgroundWrites;

std::vector<StoredObject> ListOf(const std::string& text) {
  Buffer packed;
  packed.Append(text.data(), text.size());
  return {StoredObject{Id(packed), packed, Id()}};
}

Kit::Error FullError() {
  Kit::Error error;
  error.code = ErrorCode::Full;
  return error;
}

/// Writes of lists with one object each, whose text says how the write ends.
class BackgroundWritesTest : public testing::Test {
 protected:
  Status Write(std::span<const StoredObject> objects) {
    while (m_isHeld) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_written.push_back(Kit::BytesFromBuffer(objects.front().packed));
    if (m_written.back() == "full") return FullError();
    if (m_written.back() == "no memory") throw std::bad_alloc();
    return {};
  }

  std::atomic<bool> m_isHeld = false;
  std::vector<std::string> m_written;  // the writing thread's until a function has waited for it
  BackgroundWrites m_writes{
      [this](std::span<const StoredObject> objects) { return Write(objects); }};
};

TEST_F(BackgroundWritesTest, ListsAreWrittenInTheirOrder) {
  std::vector<std::string> expected;
  for (int i = 0; i < 200; ++i) {
    expected.push_back(std::to_string(i));
    ASSERT_TRUE(m_writes.Begin(ListOf(expected.back())).ok());
    if (i % 50 == 0) {
      ASSERT_TRUE(m_writes.Wait().ok());
      EXPECT_EQ(m_written, expected);
    }
  }
  EXPECT_TRUE(m_writes.Finish().ok());
  EXPECT_EQ(m_written, expected);
}

TEST_F(BackgroundWritesTest, FailureStaysUntilTheEndAndNothingIsWrittenAfterIt) {
  m_isHeld = true;
  ASSERT_TRUE(m_writes.Begin(ListOf("full")).ok());
  ASSERT_TRUE(m_writes.Begin(ListOf("after")).ok());
  m_isHeld = false;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(m_writes.Wait().error().code, ErrorCode::Full);
    EXPECT_EQ(m_writes.Begin(ListOf("refused")).error().code, ErrorCode::Full);
  }
  EXPECT_EQ(m_writes.Finish().error().code, ErrorCode::Full);
  EXPECT_TRUE(m_writes.Finish().ok());
  ASSERT_TRUE(m_writes.Begin(ListOf("again")).ok());
  EXPECT_TRUE(m_writes.Wait().ok());
  EXPECT_EQ(m_written, (std::vector<std::string>{"full", "again"}));
}

TEST_F(BackgroundWritesTest, ExceptionOfAWriteIsThrownToTheOwner) {
  ASSERT_TRUE(m_writes.Begin(ListOf("no memory")).ok());
  EXPECT_THROW(static_cast<void>(m_writes.Wait().ok()), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(m_writes.Begin(ListOf("refused")).ok()), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(m_writes.Finish().ok()), std::bad_alloc);
  EXPECT_TRUE(m_writes.Finish().ok());
  EXPECT_EQ(m_written, std::vector<std::string>{"no memory"});
}

TEST_F(BackgroundWritesTest, DroppedListsAreNotWrittenAndAFailureIsForgotten) {
  m_isHeld = true;
  ASSERT_TRUE(m_writes.Begin(ListOf("full")).ok());
  ASSERT_TRUE(m_writes.Begin(ListOf("dropped")).ok());
  std::thread other([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    m_isHeld = false;
  });
  m_writes.Drop();
  other.join();
  EXPECT_TRUE(m_writes.Finish().ok());
  // The drop may come before the thread has taken its first list.
  EXPECT_LE(m_written.size(), 1U);
  ASSERT_TRUE(m_writes.Begin(ListOf("again")).ok());
  EXPECT_TRUE(m_writes.Finish().ok());
  EXPECT_EQ(m_written.back(), "again");
}

TEST_F(BackgroundWritesTest, EndOfTheOwnerWaitsForTheListThatIsBeingWritten) {
  std::atomic<int> running = 0;
  for (int round = 0; round < 50; ++round) {
    BackgroundWrites writes([&running](std::span<const StoredObject> /*objects*/) {
      ++running;
      std::this_thread::yield();
      --running;
      return Status();
    });
    ASSERT_TRUE(writes.Begin(ListOf("1")).ok());
    ASSERT_TRUE(writes.Begin(ListOf("2")).ok());
  }
  EXPECT_EQ(running, 0);
}

}  // namespace
}  // namespace TalVcs::Testing
