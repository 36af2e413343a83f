#include <talvcs/foundation/buffer.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

TEST(Buffer, OfSizeZeroIsEmpty) {
  const Buffer buffer(0);
  EXPECT_EQ(buffer.GetSize(), 0U);
  EXPECT_TRUE(buffer.IsEmpty());
  EXPECT_TRUE(buffer.LockForRead().empty());
  EXPECT_EQ(buffer.GetSegmentCount(), 0U);
}

TEST(Buffer, ThrowsLengthErrorForAnImpossibleSize) {
  EXPECT_THROW(Buffer(std::numeric_limits<std::size_t>::max() / 2 + 1), std::length_error);
  EXPECT_THROW(Buffer{std::numeric_limits<std::size_t>::max()}, std::length_error);
}

TEST(Buffer, OfSizeHasZeros) {
  const Buffer buffer(5);
  EXPECT_EQ(Bytes(buffer), std::string(5, '\0'));
}

TEST(BufferAppend, AddsBytesAtTheEnd) {
  Buffer buffer;
  EXPECT_TRUE(buffer.Append("abc", 3, 1));
  EXPECT_TRUE(buffer.Append("d\0e", 3));
  EXPECT_EQ(buffer.GetSize(), 6U);
  EXPECT_EQ(Bytes(buffer), std::string("abcd\0e", 6));
}

TEST(BufferAppend, OfNoBytesChangesNothing) {
  Buffer buffer = BufferOf("abc");
  EXPECT_TRUE(buffer.Append("x", 0, 1));
  EXPECT_TRUE(buffer.Append(nullptr, 0, 1));
  EXPECT_EQ(Bytes(buffer), "abc");
}

TEST(BufferAppend, OfNullWithSizeIsRefused) {
  Buffer buffer = BufferOf("abc");
  EXPECT_FALSE(buffer.Append(nullptr, 1, 1));
  EXPECT_EQ(Bytes(buffer), "abc");
  EXPECT_FALSE(Buffer().Append(nullptr, 1, 1));
}

TEST(BufferAppend, ManySmallPiecesReadAsOneText) {
  Buffer buffer;
  std::string expected;
  for (int piece = 0; piece < 3000; ++piece) {
    const std::string bytes(static_cast<std::size_t>(piece % 7),
                            static_cast<char>('a' + piece % 26));
    buffer.Append(bytes.data(), bytes.size(), 1);
    expected += bytes;
  }
  EXPECT_EQ(buffer.GetSize(), expected.size());
  EXPECT_EQ(Bytes(buffer), expected);
}

TEST(BufferAppend, OfBufferAddsItsBytes) {
  Buffer buffer = BufferOf("abc");
  const Buffer other = BufferOfParts({"de", "", "f"});
  buffer.Append(other);
  EXPECT_EQ(Bytes(buffer), "abcdef");
  EXPECT_EQ(Bytes(other), "def");
}

TEST(BufferAppend, OfItselfDoublesIt) {
  Buffer buffer = BufferOf("abc");
  for (const char* expected : {"abcabc", "abcabcabcabc"}) {
    buffer.Append(buffer);
    EXPECT_EQ(Bytes(buffer), expected);
  }
}

TEST(BufferAppend, OfItsOwnBytesDoublesThem) {
  Buffer buffer = BufferOf("abc");
  buffer.Append("def", 3, 1);
  for (int turn = 0; turn < 3; ++turn) {
    const std::string before = Bytes(buffer);
    const std::span<const std::byte> first = buffer.GetSegment(0);
    buffer.Append(first.data(), first.size(), 1);
    EXPECT_EQ(Bytes(buffer), before + "abc");
  }
}

TEST(Buffer, SegmentsAreNeverEmpty) {
  const Buffer buffer = BufferOfParts({"", "ab", "", "c", ""});
  for (const Buffer::ReadDataAccessor& segment : buffer.LockForRead()) {
    EXPECT_NE(segment.GetData(), nullptr);
    EXPECT_GT(segment.GetSize(), 0U);
  }
  EXPECT_EQ(Bytes(buffer), "abc");
}

TEST(Buffer, CopyIsIndependent) {
  Buffer source = BufferOf("abc");
  Buffer copy(source);
  source.Append("x", 1, 1);
  copy.Append("y", 1, 1);
  EXPECT_EQ(Bytes(source), "abcx");
  EXPECT_EQ(Bytes(copy), "abcy");
}

TEST(Buffer, MovedFromIsEmptyAndUsable) {
  Buffer source = BufferOf("abc");
  Buffer target(std::move(source));
  EXPECT_EQ(Bytes(target), "abc");
  EXPECT_EQ(source.GetSize(), 0U);  // NOLINT(bugprone-use-after-move)
  source.Append("d", 1, 1);
  EXPECT_EQ(Bytes(source), "d");
}

TEST(Buffer, AssignmentReplacesTheContent) {
  Buffer target = BufferOf("old");
  const Buffer source = BufferOfParts({"ne", "w"});
  target = source;
  EXPECT_EQ(Bytes(target), "new");
  target = BufferOf("newer");
  EXPECT_EQ(Bytes(target), "newer");
}

TEST(Buffer, SelfAssignmentKeepsTheContent) {
  Buffer buffer = BufferOfParts({"ab", "c"});
  Buffer& self = buffer;
  buffer = self;
  EXPECT_EQ(Bytes(buffer), "abc");
  buffer = std::move(self);
  EXPECT_EQ(Bytes(buffer), "abc");
}

TEST(BufferReadAt, ReadsAcrossSegments) {
  const Buffer buffer = BufferOfParts({"abc", "d", "efgh"});
  char read[9] = {};
  EXPECT_EQ(buffer.ReadAt(2, read, 4), 4U);
  EXPECT_STREQ(read, "cdef");
  EXPECT_EQ(buffer.ReadAt(7, read, 4), 1U);
  EXPECT_EQ(read[0], 'h');
  EXPECT_EQ(buffer.ReadAt(8, read, 4), 0U);
  EXPECT_EQ(buffer.ReadAt(~std::uint64_t{0}, read, 4), 0U);
}

TEST(BufferReadAt, EveryRangeOfASegmentedBuffer) {
  const Buffer buffer = BufferOfParts({"ab", "c", "def", "g"});
  const std::string all = "abcdefg";
  for (std::size_t from = 0; from <= 8; ++from) {
    for (std::size_t count = 0; count <= 9; ++count) {
      std::string read(9, '#');
      const std::size_t taken = buffer.ReadAt(from, read.data(), count);
      const std::string expected = from < all.size() ? all.substr(from, count) : "";
      EXPECT_EQ(read.substr(0, taken), expected) << from << " " << count;
    }
  }
}

TEST(BufferWriteAt, OverwritesEveryRange) {
  for (std::size_t from = 0; from <= 9; ++from) {
    for (std::size_t count = 0; count <= 9; ++count) {
      Buffer buffer = BufferOfParts({"ab", "c", "def", "g"});
      std::string expected = "abcdefg";
      const std::string written = std::string("123456789").substr(0, count);
      if (count != 0) {
        if (from + count > expected.size()) expected.resize(from + count, '\0');
        expected.replace(from, count, written);
      }
      buffer.WriteAt(from, written.data(), count);
      EXPECT_EQ(Bytes(buffer), expected) << from << " " << count;
    }
  }
}

TEST(BufferAppendRange, TakesEveryRange) {
  const Buffer source = BufferOfParts({"ab", "c", "def", "g"});
  for (std::size_t from = 0; from <= 8; ++from) {
    for (std::size_t count = 0; count <= 9; ++count) {
      Buffer target = BufferOf("<");
      target.AppendRange(source, from, count);
      target.Append(">", 1, 1);
      const std::string expected = from < 7 ? std::string("abcdefg").substr(from, count) : "";
      EXPECT_EQ(Bytes(target), "<" + expected + ">");
    }
  }
}

TEST(BufferReserveSegments, ChangesNoBytes) {
  Buffer buffer;
  buffer.ReserveSegments(10);
  EXPECT_EQ(buffer.GetSize(), 0U);
  EXPECT_TRUE(buffer.LockForRead().empty());
  buffer.Append(BufferOf("ab"));
  buffer.ReserveSegments(3);
  buffer.Append("c", 1, 1);
  EXPECT_EQ(Bytes(buffer), "abc");
}

TEST(BufferAppendTo, WritesAtThePositionOfTheStream) {
  Buffer target = BufferOf("....");
  Stream stream = MemStream::CreateOnRef(target);
  static_cast<IStream*>(stream)->Seek(1);
  std::size_t written = 0;
  EXPECT_TRUE(BufferOfParts({"a", "b"}).AppendTo(stream, &written));
  EXPECT_EQ(written, 2U);
  EXPECT_EQ(Bytes(target), ".ab.");
}

TEST(BufferAppendTo, NullCountAndNoStreamAreAllowed) {
  Buffer target;
  EXPECT_TRUE(BufferOf("abc").AppendTo(MemStream::CreateOnRef(target), nullptr));
  EXPECT_EQ(Bytes(target), "abc");
  EXPECT_FALSE(BufferOf("abc").AppendTo(Stream(), nullptr));
  EXPECT_TRUE(Buffer().AppendTo(MemStream::Create(0), nullptr));
}

}  // namespace
}  // namespace TalVcs::Testing
