#include <talvcs/foundation/buffer.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Addresses = std::vector<const void*>;

/// Where the segments of a buffer lie.
Addresses SegmentsOf(const Buffer& buffer) {
  Addresses addresses;
  for (const Buffer::ReadDataAccessor& segment : buffer.LockForRead()) {
    addresses.push_back(segment.GetData());
  }
  return addresses;
}

TEST(BufferSharing, CopyHasTheSameSegments) {
  const Buffer source = BufferOfParts({"abc", "def"});
  const Buffer copy(source);
  EXPECT_EQ(SegmentsOf(copy).size(), 2U);
  EXPECT_EQ(SegmentsOf(copy), SegmentsOf(source));
}

TEST(BufferSharing, AppendedBufferKeepsItsSegments) {
  const Buffer first = BufferOf("abc");
  const Buffer second = BufferOf("def");
  Buffer joined;
  joined.Append(first);
  joined.Append(second);
  EXPECT_EQ(SegmentsOf(joined), (Addresses{SegmentsOf(first)[0], SegmentsOf(second)[0]}));
}

TEST(BufferSharing, HeaderInFrontSharesTheData) {
  const Buffer data = BufferOf("the bytes of a large file");
  Buffer packed;
  packed.Append("blob 25", 8, 1);
  packed.Append(data);
  EXPECT_EQ(SegmentsOf(packed).back(), SegmentsOf(data)[0]);
  EXPECT_EQ(Bytes(packed), std::string("blob 25\0the bytes of a large file", 33));
}

TEST(BufferSharing, StreamTakesTheSegmentsOver) {
  const Buffer data = BufferOf("the bytes of a large file");
  Buffer target;
  data.AppendTo(MemStream::CreateOnRef(target), nullptr);
  EXPECT_EQ(SegmentsOf(target), SegmentsOf(data));
}

TEST(BufferSharing, ReadToEndSharesWholeSegments) {
  Buffer data = BufferOfParts({"head", "the bytes of a large file"});
  StreamIO reader(MemStream::CreateOnRef(data));
  char head[4];
  ASSERT_TRUE(reader.Read(head, 4));
  Buffer rest;
  EXPECT_TRUE(reader.ReadToEnd(rest));
  EXPECT_EQ(SegmentsOf(rest), Addresses{SegmentsOf(data)[1]});
}

TEST(BufferSharing, WriterDetachesTheSegmentItChanges) {
  Buffer writer = BufferOfParts({"abc", "def"});
  const Buffer other(writer);
  writer.WriteAt(4, "X", 1);
  EXPECT_EQ(Bytes(writer), "abcdXf");
  EXPECT_EQ(Bytes(other), "abcdef");
  EXPECT_EQ(SegmentsOf(writer)[0], SegmentsOf(other)[0]);
  EXPECT_NE(SegmentsOf(writer)[1], SegmentsOf(other)[1]);
}

TEST(BufferSharing, SoleWriterKeepsItsBytesInPlace) {
  Buffer writer = BufferOfParts({"abc", "def"});
  const Addresses before = SegmentsOf(writer);
  writer.WriteAt(1, "XYZ", 3);
  EXPECT_EQ(SegmentsOf(writer), before);
  EXPECT_EQ(Bytes(writer), "aXYZef");
}

TEST(BufferSharing, SoleWriterOfAPartWritesWhereThePartLies) {
  Buffer writer = BufferOf("abc");
  writer.AppendRange(BufferOf("0123456789"), 4, 3);
  writer.WriteAt(4, "X", 1);
  EXPECT_EQ(Bytes(writer), "abc4X6");
}

TEST(BufferSharing, WriteIntoOneOfTwoEqualSegmentsChangesThatOne) {
  Buffer buffer = BufferOf("abc");
  buffer.Append(buffer);
  buffer.WriteAt(1, "X", 1);
  EXPECT_EQ(Bytes(buffer), "aXcabc");
  buffer.WriteAt(4, "Y", 1);
  EXPECT_EQ(Bytes(buffer), "aXcaYc");
}

TEST(BufferSharing, GrowthOfTheSourceIsNotSeenByThoseWhoShare) {
  Buffer source = BufferOf("abc");
  source.Append("def", 3, 1);  // leaves room after the last byte
  Buffer appended;
  appended.Append(source);
  const Buffer copy(source);
  source.Append("ghi", 3, 1);
  appended.Append("xyz", 3, 1);
  EXPECT_EQ(Bytes(copy), "abcdef");
  EXPECT_EQ(Bytes(source), "abcdefghi");
  EXPECT_EQ(Bytes(appended), "abcdefxyz");
}

TEST(BufferSharing, SegmentsOutliveTheBufferTheyCameFrom) {
  Buffer joined;
  {
    const Buffer part = BufferOf("a part that goes away");
    joined.Append(part);
    joined.Append(part);
  }
  EXPECT_EQ(Bytes(joined), "a part that goes awaya part that goes away");
}

TEST(BufferSharing, AccessorKeepsItsBytesUnchangedWhenTheBufferIsWritten) {
  Buffer buffer = BufferOf("abc");
  const std::vector<Buffer::ReadDataAccessor> segments = buffer.LockForRead();
  buffer.WriteAt(0, "XYZ", 3);
  EXPECT_EQ(std::string(static_cast<const char*>(segments[0].GetData()), 3), "abc");
  EXPECT_EQ(Bytes(buffer), "XYZ");
}

TEST(BufferSharing, AccessorOutlivesTheBuffer) {
  std::vector<Buffer::ReadDataAccessor> kept;
  {
    const Buffer buffer = BufferOfParts({"abc", "def"});
    kept = buffer.LockForRead();
  }
  const Buffer::ReadDataAccessor copy = kept[1];
  kept.clear();
  EXPECT_EQ(std::string(static_cast<const char*>(copy.GetData()), copy.GetSize()), "def");
}

TEST(BufferSharing, MovedFromAccessorHasNothing) {
  const Buffer buffer = BufferOf("abc");
  Buffer::ReadDataAccessor source = buffer.LockForRead()[0];
  const Buffer::ReadDataAccessor target = std::move(source);
  EXPECT_EQ(target.GetSize(), 3U);
  EXPECT_EQ(source.GetSize(), 0U);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.GetData(), nullptr);
}

TEST(BufferSharing, ASegmentTakenManyTimesCountsItsBytesEachTime) {
  const Buffer mebibyte(std::size_t{1} << 20);
  Buffer large;
  large.ReserveSegments(5000);
  for (int turn = 0; turn < 5000; ++turn) large.Append(mebibyte);
  EXPECT_EQ(large.GetSize(), std::uint64_t{5000} << 20);
  EXPECT_EQ(large.GetSegmentCount(), 5000U);
  EXPECT_EQ(large.GetSegment(4999).data(), mebibyte.GetSegment(0).data());
}

TEST(BufferSharing, AssignedAccessorReadsWhatTheOtherReads) {
  const Buffer first = BufferOf("abc");
  Buffer second = BufferOf("defgh");
  Buffer::ReadDataAccessor accessor = first.LockForRead().front();
  accessor = second.LockForRead().front();
  second = Buffer();
  ASSERT_EQ(accessor.GetSize(), 5u);
  EXPECT_EQ(std::string(static_cast<const char*>(accessor.GetData()), 5), "defgh");
}

}  // namespace
}  // namespace TalVcs::Testing
