#include <talvcs/foundation/helpers.h>

#include <gtest/gtest.h>
#include <tests/support/bytes.h>

#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Components = std::vector<std::string>;
using Helpers::AppendToBuffer;
using Helpers::ComputeEncodedSHA256Hash;
using Helpers::ShiftObjectIdentifier;
using Helpers::SplitVcsPath;
using Helpers::StreamToStringA;
using Helpers::StringAFromBuffer;

constexpr char kDigestOfNothing[] =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char kDigestOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
// Of the bytes 0, 1, 2 and so on up to 199.
constexpr char kDigestOfRun[] = "1901da1c9f699b48f6b2636e65cbf73abf99d0441ef67f5c540a42f7051dec6f";

/// A stream that is longer than what it gives.
class EndlessStream final : public IStream {
 public:
  std::size_t Read(void*, std::size_t) override { return 0; }
  std::size_t Write(const void*, std::size_t) override { return 0; }
  bool Seek(std::uint64_t) override { return false; }
  std::uint64_t GetPosition() const override { return 2; }
  std::uint64_t GetSize() const override { return 10; }
};

/// A reader that reports a position before the end, wherever the stream stands.
class ReaderBeforeTheEnd final : public StreamIO {
 public:
  ReaderBeforeTheEnd(const Stream& stream, std::uint64_t bytesLeft)
      : StreamIO(stream), m_bytesLeft(bytesLeft) {}
  std::uint64_t GetPosition() const override { return GetSize() - m_bytesLeft; }

 private:
  std::uint64_t m_bytesLeft;
};

std::string ByteRun() {
  std::string bytes;
  for (int value = 0; value < 200; ++value) bytes += static_cast<char>(value);
  return bytes;
}

TEST(ComputeEncodedSHA256Hash, OfNullPointerIsEmpty) {
  EXPECT_TRUE(ComputeEncodedSHA256Hash(nullptr, 0).IsEmpty());
  EXPECT_TRUE(ComputeEncodedSHA256Hash(nullptr, 100).IsEmpty());
}

TEST(ComputeEncodedSHA256Hash, OfPointerWithoutBytesIsTheDigestOfNothing) {
  EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash("", 0)), kDigestOfNothing);
}

TEST(ComputeEncodedSHA256Hash, OfBytesIsTheirDigest) {
  EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash("abc", 3)), kDigestOfAbc);
  const std::string run = ByteRun();
  EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash(run.data(), run.size())), kDigestOfRun);
}

TEST(ComputeEncodedSHA256Hash, OfBufferDoesNotDependOnItsSegments) {
  const std::string run = ByteRun();
  EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash(BufferOf(run))), kDigestOfRun);
  for (std::size_t cut = 1; cut < run.size(); ++cut) {
    const Buffer two = BufferOfParts({run.substr(0, cut), run.substr(cut)});
    ASSERT_EQ(two.GetSegmentCount(), 2U);
    EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash(two)), kDigestOfRun) << cut;
  }
}

TEST(ComputeEncodedSHA256Hash, OfBufferCutIntoSingleBytesIsTheSame) {
  Buffer buffer;
  for (const char byte : ByteRun()) buffer.Append(BufferOf(std::string(1, byte)));
  EXPECT_EQ(Ascii(ComputeEncodedSHA256Hash(buffer)), kDigestOfRun);
}

TEST(ComputeEncodedSHA256Hash, OfEmptyBufferIsEmpty) {
  // An empty buffer has no segment, and where nothing was hashed there is no digest.
  EXPECT_TRUE(ComputeEncodedSHA256Hash(Buffer()).IsEmpty());
}

TEST(AppendToBuffer, OfBufferAddsItsSegmentsInOrder) {
  Buffer target = BufferOf("a");
  AppendToBuffer(target, BufferOfParts({"b", "c"}));
  EXPECT_EQ(Bytes(target), "abc");
  EXPECT_EQ(target.GetSegmentCount(), 3U);
}

TEST(AppendToBuffer, OfNarrowViewAddsItsBytesUnchanged) {
  Buffer target;
  AppendToBuffer(target, TalStringViewT<char>("a\0\xFF"
                                              "b",
                                              4));
  AppendToBuffer(target, TalStringViewT<char>());
  EXPECT_EQ(Bytes(target), std::string("a\0\xFF"
                                       "b",
                                       4));
}

TEST(AppendToBuffer, OfWideViewAddsUtf8WithoutTerminator) {
  Buffer target;
  AppendToBuffer(target, TalStringViewT<WideChar>(TAL_WIDE("\u00E9 \u20AC \U0001F600!"), 6));
  EXPECT_EQ(Hex(Bytes(target)), "C3 A9 20 E2 82 AC 20 F0 9F 98 80");
}

TEST(AppendToBuffer, OfWideViewEndsAtZero) {
  Buffer target;
  AppendToBuffer(target, TalStringViewT<WideChar>(TAL_WIDE("ab\0cd"), 5));
  EXPECT_EQ(Bytes(target), "ab");
}

TEST(StringAFromBuffer, JoinsSegmentsAndKeepsZeros) {
  EXPECT_EQ(Bytes(StringAFromBuffer(BufferOfParts({"a", std::string_view("\0b", 2), "c"}))),
            std::string("a\0bc", 4));
  EXPECT_TRUE(StringAFromBuffer(Buffer()).IsEmpty());
}

TEST(StreamToStringA, ReadsFromThePositionToTheEnd) {
  StreamIO stream(StreamOf(std::string_view("ab\0cd", 5)));
  char byte;
  stream.Read(&byte, 1);
  EXPECT_EQ(Bytes(StreamToStringA(stream)), std::string("b\0cd", 4));
  EXPECT_EQ(stream.GetPosition(), 5U);
}

TEST(StreamToStringA, AtTheEndIsEmpty) {
  StreamIO stream(StreamOf("abc"));
  StreamToStringA(stream);
  EXPECT_TRUE(StreamToStringA(stream).IsEmpty());
}

TEST(StreamToStringA, OfNothingOrEmptyStreamIsEmpty) {
  StreamIO nothing;
  StreamIO empty(MemStream::Create(0));
  EXPECT_TRUE(StreamToStringA(nothing).IsEmpty());
  EXPECT_TRUE(StreamToStringA(empty).IsEmpty());
}

TEST(StreamToStringA, ReadsAsManyBytesAsTheReaderReports) {
  ReaderBeforeTheEnd ended(StreamOf("abc"), 0);
  EXPECT_TRUE(StreamToStringA(ended).IsEmpty());
  ReaderBeforeTheEnd late(StreamOf("abc"), 2);
  EXPECT_EQ(Bytes(StreamToStringA(late)), "ab");
}

TEST(StreamToStringA, IsEmptyIfFewerBytesComeThanTheReaderReports) {
  const Stream stream = StreamOf("abc");
  static_cast<IStream*>(stream)->Seek(2);
  ReaderBeforeTheEnd early(stream, 3);
  EXPECT_TRUE(StreamToStringA(early).IsEmpty());
}

TEST(StreamToStringA, AfterAFailedReadIsEmpty) {
  StreamIO stream(Stream(std::make_shared<EndlessStream>()));
  EXPECT_TRUE(StreamToStringA(stream).IsEmpty());
}

TEST(ShiftObjectIdentifier, MovesAfterTheHeader) {
  StreamIO stream(StreamOf(std::string_view("blob 5\0hello", 12)));
  EXPECT_TRUE(ShiftObjectIdentifier(stream, "blob"));
  EXPECT_EQ(Bytes(StreamToStringA(stream)), "hello");
}

TEST(ShiftObjectIdentifier, WrongWordReturnsFalseAndMovesAfterTheHeader) {
  StreamIO stream(StreamOf(std::string_view("tree 5\0hello", 12)));
  EXPECT_FALSE(ShiftObjectIdentifier(stream, "blob"));
  EXPECT_EQ(stream.GetPosition(), 7U);
}

TEST(ShiftObjectIdentifier, TestsThePrefixOnly) {
  for (const std::string_view header : {"blobfish 99", "blob", "blob ", "blob x"}) {
    StreamIO stream(StreamOf(std::string(header) + std::string("\0d", 2)));
    EXPECT_TRUE(ShiftObjectIdentifier(stream, "blob")) << header;
    EXPECT_EQ(stream.GetPosition(), header.size() + 1);
  }
}

TEST(ShiftObjectIdentifier, HeaderShorterThanTheWordGivesFalse) {
  StreamIO stream(StreamOf(std::string_view("blo\0b 5", 7)));
  EXPECT_FALSE(ShiftObjectIdentifier(stream, "blob"));
  EXPECT_EQ(stream.GetPosition(), 4U);
}

TEST(ShiftObjectIdentifier, LaterBytesDoNotUndoAMismatch) {
  StreamIO stream(StreamOf(std::string_view("bblob 5\0", 8)));
  EXPECT_FALSE(ShiftObjectIdentifier(stream, "blob"));
}

TEST(ShiftObjectIdentifier, EmptyHeaderAndEmptyWord) {
  StreamIO empty_header(StreamOf(std::string_view("\0x", 2)));
  EXPECT_FALSE(ShiftObjectIdentifier(empty_header, "blob"));
  EXPECT_EQ(empty_header.GetPosition(), 1U);
  StreamIO any(StreamOf(std::string_view("tree 0\0", 7)));
  EXPECT_TRUE(ShiftObjectIdentifier(any, ""));
}

TEST(ShiftObjectIdentifier, WithoutZeroReadsToTheEndAndGivesFalse) {
  StreamIO stream(StreamOf("blob 5hello"));
  EXPECT_FALSE(ShiftObjectIdentifier(stream, "blob"));
  EXPECT_EQ(stream.GetPosition(), 11U);
}

TEST(ShiftObjectIdentifier, OverNothingGivesFalse) {
  StreamIO stream;
  EXPECT_FALSE(ShiftObjectIdentifier(stream, "blob"));
}

TEST(SplitVcsPath, OfNothingButSeparatorsIsEmpty) {
  for (const char* path : {"", "/", "//", "/////"}) {
    EXPECT_TRUE(SplitVcsPath(Wide(path)).empty()) << path;
  }
  EXPECT_TRUE(SplitVcsPath(TalStringViewT<WideChar>()).empty());
}

TEST(SplitVcsPath, EmptyComponentsVanish) {
  for (const char* path : {"one/two", "/one/two", "one//two", "one/two/", "//one///two//"}) {
    const TalStringT<WideChar> text = Wide(path);
    EXPECT_EQ(Ascii(SplitVcsPath(text)), (Components{"one", "two"})) << path;
  }
}

TEST(SplitVcsPath, WithoutSeparatorIsTheWholePath) {
  const TalStringT<WideChar> path = Wide("name");
  EXPECT_EQ(Ascii(SplitVcsPath(path)), Components{"name"});
}

TEST(SplitVcsPath, OtherCharactersAreOrdinary) {
  const TalStringT<WideChar> path = Wide("./../a\\b/ /c:");
  EXPECT_EQ(Ascii(SplitVcsPath(path)), (Components{".", "..", "a\\u005Cb", " ", "c:"}));
}

TEST(SplitVcsPath, GivesViewsOfTheCallersText) {
  const TalStringT<WideChar> path = Wide("/one/two");
  const auto components = SplitVcsPath(path);
  EXPECT_EQ(components[0].text, path.GetString() + 1);
  EXPECT_EQ(components[1].text, path.GetString() + 5);
}

TEST(SplitVcsPath, EndsWithTheView) {
  EXPECT_EQ(Ascii(SplitVcsPath(TalStringViewT<WideChar>(TAL_WIDE("one/two"), 5))),
            (Components{"one", "t"}));
}

}  // namespace
}  // namespace TalVcs::Testing
