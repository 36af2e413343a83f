#include <talvcs/foundation/stream.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>
#include <tests/support/shifted_reader.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

/// A host's stream that gives only some of its bytes and takes only some.
class TornStream final : public IStream {
 public:
  TornStream(std::string bytes, std::size_t readable, std::size_t writable)
      : m_bytes(std::move(bytes)), m_readable(readable), m_writable(writable) {}

  std::size_t Read(void* data, std::size_t size) override {
    const std::size_t count = std::min(size, m_readable - std::min(m_readable, m_position));
    std::memcpy(data, m_bytes.data() + m_position, count);
    m_position += count;
    return count;
  }
  std::size_t Write(const void* data, std::size_t size) override {
    const std::size_t count = std::min(size, m_writable - written.size());
    written.append(static_cast<const char*>(data), count);
    return count;
  }
  bool Seek(std::uint64_t) override { return false; }
  std::uint64_t GetPosition() const override { return m_position; }
  std::uint64_t GetSize() const override { return m_bytes.size(); }

  std::string written;

 private:
  std::string m_bytes;
  std::size_t m_readable;
  std::size_t m_writable;
  std::size_t m_position = 0;
};

/// A host's stream that shares more bytes than its size says.
class GenerousStream final : public IStream {
 public:
  std::size_t Read(void*, std::size_t) override { return 0; }
  std::size_t Write(const void*, std::size_t) override { return 0; }
  bool Seek(std::uint64_t) override { return false; }
  std::uint64_t GetPosition() const override { return 1; }
  std::uint64_t GetSize() const override { return 4; }
  bool ReadToEnd(Buffer& target) override {
    target.Append("abcdef", 6, 1);
    return true;
  }
};

/// A host's stream that passes on what a failed system call returns.
class FailingStream final : public IStream {
 public:
  explicit FailingStream(std::uint64_t size) : m_size(size) {}

  std::size_t Read(void*, std::size_t) override { return static_cast<std::size_t>(-1); }
  std::size_t Write(const void*, std::size_t) override { return static_cast<std::size_t>(-1); }
  bool Seek(std::uint64_t) override { return false; }
  std::uint64_t GetPosition() const override { return 0; }
  std::uint64_t GetSize() const override { return m_size; }

 private:
  std::uint64_t m_size;
};

std::string ReadBytes(StreamIO& stream, std::size_t count) {
  std::string bytes(count, '#');
  return stream.Read(bytes.data(), count) ? bytes : "failed";
}

TEST(StreamIO, WithoutStreamTestsFalseAndReadsNothing) {
  StreamIO stream;
  char byte = 'x';
  EXPECT_FALSE(static_cast<bool>(stream));
  EXPECT_EQ(stream.GetSize(), 0U);
  EXPECT_EQ(stream.GetPosition(), 0U);
  EXPECT_FALSE(stream.Read(&byte, 1));
  EXPECT_FALSE(static_cast<bool>(StreamIO(Stream())));
}

TEST(StreamIO, OverEmptyStreamHasSizeZeroAndReadsNothing) {
  StreamIO stream(MemStream::Create(0));
  char byte = 'x';
  EXPECT_EQ(stream.GetSize(), 0U);
  EXPECT_FALSE(stream.Read(&byte, 1));
}

TEST(StreamIO, ReadsFromThePositionOn) {
  StreamIO stream(StreamOf("abcdef"));
  EXPECT_EQ(ReadBytes(stream, 2), "ab");
  EXPECT_EQ(stream.GetPosition(), 2U);
  EXPECT_EQ(ReadBytes(stream, 4), "cdef");
  EXPECT_EQ(stream.GetPosition(), 6U);
  EXPECT_EQ(stream.GetSize(), 6U);
}

TEST(StreamIO, ReadOfMoreThanThereIsFails) {
  StreamIO stream(StreamOf("abc"));
  EXPECT_EQ(ReadBytes(stream, 4), "failed");
}

TEST(StreamIO, ReadAtTheEndFails) {
  StreamIO stream(StreamOf("abc"));
  EXPECT_EQ(ReadBytes(stream, 3), "abc");
  EXPECT_EQ(ReadBytes(stream, 1), "failed");
}

TEST(StreamIO, StartsAtThePositionOfTheStream) {
  Stream stream = StreamOf("abcdef");
  static_cast<IStream*>(stream)->Seek(4);
  StreamIO reader(stream);
  EXPECT_EQ(ReadBytes(reader, 2), "ef");
}

TEST(StreamIO, CopyReadsFromTheSamePosition) {
  StreamIO first(StreamOf("abcdef"));
  StreamIO second(first);
  EXPECT_EQ(ReadBytes(first, 2), "ab");
  EXPECT_EQ(ReadBytes(second, 2), "cd");
  EXPECT_EQ(first.GetPosition(), 4U);
}

TEST(StreamIO, CopyToGivesTheRest) {
  StreamIO stream(StreamOf("abcdef"));
  ReadBytes(stream, 2);
  Buffer target;
  std::size_t copied = 0;
  EXPECT_TRUE(stream.CopyTo(MemStream::CreateOnRef(target), &copied));
  EXPECT_EQ(copied, 4U);
  EXPECT_EQ(Bytes(target), "cdef");
  EXPECT_EQ(stream.GetPosition(), 6U);
}

TEST(StreamIO, CopyToTakesNullCountAndNullTarget) {
  StreamIO stream(StreamOf("abc"));
  Buffer target;
  EXPECT_TRUE(stream.CopyTo(MemStream::CreateOnRef(target), nullptr));
  EXPECT_EQ(Bytes(target), "abc");
  EXPECT_FALSE(StreamIO(StreamOf("abc")).CopyTo(nullptr, nullptr));
  std::size_t copied = 7;
  EXPECT_FALSE(StreamIO(StreamOf("abc")).CopyTo(nullptr, &copied));
  EXPECT_EQ(copied, 0U);
}

TEST(StreamIO, CopyToCountsBytesOfATargetThatFails) {
  const auto target = std::make_shared<TornStream>("", 0, 4);
  StreamIO stream(StreamOf("abcdef"));
  std::size_t copied = 0;
  EXPECT_FALSE(stream.CopyTo(target.get(), &copied));
  EXPECT_EQ(copied, 4U);
  EXPECT_EQ(target->written, "abcd");
}

TEST(StreamIO, ShortReadOfAHostsStreamFails) {
  StreamIO stream(Stream(std::make_shared<TornStream>("abcdef", 4, 0)));
  EXPECT_EQ(ReadBytes(stream, 3), "abc");
  EXPECT_EQ(ReadBytes(stream, 3), "failed");
}

TEST(StreamIO, ReadToEndReturnsFalseIfAHostStreamIsShort) {
  StreamIO whole(Stream(std::make_shared<TornStream>("abcdef", 6, 0)));
  StreamIO torn(Stream(std::make_shared<TornStream>("abcdef", 4, 0)));
  Buffer of_whole = BufferOf(":");
  Buffer of_torn;
  EXPECT_TRUE(whole.ReadToEnd(of_whole));
  EXPECT_FALSE(torn.ReadToEnd(of_torn));
  EXPECT_EQ(Bytes(of_whole), ":abcdef");
  EXPECT_EQ(Bytes(of_torn), "abcd");
}

TEST(StreamIO, HostStreamThatReturnsMoreThanItWasAskedForReadsAndWritesNothing) {
  for (const std::uint64_t size : {10, 100'000}) {
    StreamIO reader(Stream(std::make_shared<FailingStream>(size)));
    Buffer target;
    EXPECT_FALSE(reader.ReadToEnd(target));
    EXPECT_TRUE(target.IsEmpty());
    std::byte byte{};
    EXPECT_FALSE(reader.Read(&byte, 1));
  }
  Buffer bytes;
  bytes.Append("abc", 3, 1);
  EXPECT_EQ(FailingStream(0).WriteBuffer(bytes), 0U);
}

TEST(StreamIO, ReadToEndOfALargeHostStreamGivesEveryByte) {
  std::string bytes(200'000, 'x');
  for (std::size_t index = 0; index < bytes.size(); index += 997) bytes[index] = 'y';
  StreamIO stream(Stream(std::make_shared<TornStream>(bytes, bytes.size(), 0)));
  Buffer target;
  EXPECT_TRUE(stream.ReadToEnd(target));
  EXPECT_EQ(Bytes(target), bytes);
}

TEST(StreamIO, ReadToEndReadsAsManyBytesAsTheReaderReports) {
  ShiftedReader late(StreamOf("abcdef"), 4);
  Buffer two = BufferOf(":");
  EXPECT_TRUE(late.ReadToEnd(two));
  EXPECT_EQ(Bytes(two), ":ab");
  ShiftedReader at_the_end(StreamOf("abcdef"), 6);
  Buffer none;
  EXPECT_TRUE(at_the_end.ReadToEnd(none));
  EXPECT_TRUE(none.IsEmpty());
  const Stream moved = StreamOf("abcdef");
  static_cast<IStream*>(moved)->Seek(3);
  ShiftedReader early(moved, 1);
  Buffer rest;
  EXPECT_FALSE(early.ReadToEnd(rest)) << "five bytes are reported and three are there";
  EXPECT_EQ(Bytes(rest), "def");
}

TEST(StreamIO, CopyToCopiesAsManyBytesAsTheReaderReports) {
  ShiftedReader reader(StreamOf("abcdef"), 4);
  Buffer target;
  std::size_t copied = 0;
  EXPECT_TRUE(reader.CopyTo(MemStream::CreateOnRef(target), &copied));
  EXPECT_EQ(Bytes(target), "ab");
  EXPECT_EQ(copied, 2U);
}

TEST(StreamIO, ReadToEndTakesNoMoreThanTheSizeOfAStreamThatSharesItsBytes) {
  StreamIO stream(Stream(std::make_shared<GenerousStream>()));
  Buffer target = BufferOf(":");
  EXPECT_TRUE(stream.ReadToEnd(target));
  EXPECT_EQ(Bytes(target), ":abc");
}

TEST(Stream, CopyIsAHandleOnTheSameStream) {
  Stream first = MemStream::Create(0);
  Stream second = first;
  EXPECT_EQ(static_cast<IStream*>(first), static_cast<IStream*>(second));
  first.Write(BufferOf("abc"));
  EXPECT_EQ(static_cast<IStream*>(second)->GetPosition(), 3U);
  EXPECT_TRUE(second.SeekToBegin());
  StreamIO reader(first);
  EXPECT_EQ(ReadBytes(reader, 3), "abc");
}

TEST(Stream, WithoutStreamAcceptsNoBytes) {
  Stream stream;
  EXPECT_EQ(static_cast<IStream*>(stream), nullptr);
  EXPECT_FALSE(stream.SeekToBegin());
  EXPECT_EQ(stream.Write(BufferOf("abc")), 0U);
}

TEST(MemStream, OfSizeReadsZeros) {
  StreamIO stream(MemStream::Create(3));
  EXPECT_EQ(stream.GetSize(), 3U);
  EXPECT_EQ(ReadBytes(stream, 3), std::string(3, '\0'));
}

TEST(MemStream, OnRefPutsWhatIsWrittenIntoTheBuffer) {
  Buffer buffer;
  const Stream stream = MemStream::CreateOnRef(buffer);
  BufferOf("abc").AppendTo(stream, nullptr);
  static_cast<IStream*>(stream)->Write("def", 3);
  EXPECT_EQ(Bytes(buffer), "abcdef");
}

TEST(MemStream, OnRefStartsAtTheBeginningAndOverwrites) {
  Buffer buffer = BufferOf("abcdef");
  const Stream stream = MemStream::CreateOnRef(buffer);
  BufferOfParts({"X", "Y"}).AppendTo(stream, nullptr);
  EXPECT_EQ(Bytes(buffer), "XYcdef");
}

TEST(MemStream, OnRefSeesChangesOfTheBuffer) {
  Buffer buffer;
  StreamIO reader(MemStream::CreateOnRef(buffer));
  buffer.Append("late", 4, 1);
  EXPECT_EQ(reader.GetSize(), 4U);
  EXPECT_EQ(ReadBytes(reader, 4), "late");
}

TEST(MemStream, WriteAfterTheEndFillsTheGapWithZeros) {
  Buffer buffer = BufferOf("ab");
  const Stream handle = MemStream::CreateOnRef(buffer);
  IStream* const stream = handle;
  EXPECT_TRUE(stream->Seek(4));
  EXPECT_EQ(stream->Write("c", 1), 1U);
  EXPECT_EQ(Bytes(buffer), std::string("ab\0\0c", 5));
}

TEST(MemStream, TakesItsOwnBufferTwice) {
  Buffer buffer = BufferOf("abc");
  const Stream stream = MemStream::CreateOnRef(buffer);
  static_cast<IStream*>(stream)->Seek(1);
  buffer.AppendTo(stream, nullptr);
  EXPECT_EQ(Bytes(buffer), "aabc");
}

TEST(MemStream, ReadToEndPastTheEndGivesNothing) {
  const Stream stream = StreamOf("abc");
  static_cast<IStream*>(stream)->Seek(7);
  Buffer target;
  EXPECT_TRUE(StreamIO(stream).ReadToEnd(target));
  EXPECT_EQ(target.GetSize(), 0U);
}

}  // namespace
}  // namespace TalVcs::Testing
