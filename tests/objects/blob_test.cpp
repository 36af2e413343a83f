#include <talvcs/objects/blob.h>

#include <talvcs/foundation/helpers.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kHelloId[] = "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60";
constexpr char kEmptyBlobId[] = "473a0f4c3be8a93681a267e3b1e9a7dcda1185436fe141f7749120a303721813";
constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";
constexpr char kZerosId[] = "073b1736390b617a3a1cb79cf27cfe8d8b7463d81f4eca6df98ab2ef92cf42ec";

TEST(Blob, HasItsTypeAndModeWords) {
  const Blob blob;
  EXPECT_EQ(Bytes(blob.GetHeader()), "blob");
  EXPECT_EQ(Bytes(blob.GetStoragePrefix()), "100644");
  EXPECT_EQ(Bytes(Blob::kType), "blob");
  EXPECT_EQ(Bytes(Blob::kMode), "100644");
}

TEST(Blob, PacksTypeSizeZeroAndData) {
  EXPECT_EQ(Hex(Bytes(BlobOf("hello").GetPackedData())), "62 6C 6F 62 20 35 00 68 65 6C 6C 6F");
}

TEST(Blob, IdIsTheDigestOfThePackedForm) { EXPECT_EQ(IdOf(BlobOf("hello")), kHelloId); }

TEST(Blob, EmptyBlobHasSevenPackedBytes) {
  const Blob blob;
  EXPECT_EQ(blob.GetData().GetSize(), 0U);
  EXPECT_EQ(Hex(Bytes(blob.GetPackedData())), "62 6C 6F 62 20 30 00");
  EXPECT_EQ(IdOf(blob), kEmptyBlobId);
}

TEST(Blob, ToStringOfEmptyBlobHasEightCharacters) {
  EXPECT_EQ(Blob().ToString().GetLength(), 8);
  EXPECT_TRUE(Blob().ToString() == TAL_WIDE("blob 0\\0"));
}

TEST(Blob, DataMayContainZeros) {
  const Blob blob = BlobOf(std::string_view("a\0\0b", 4));
  EXPECT_EQ(Bytes(blob.GetPackedData()), std::string("blob 4\0a\0\0b", 11));
  EXPECT_EQ(IdOf(blob), kZerosId);
  EXPECT_TRUE(blob.ToString() == TAL_WIDE("blob 4\\0a\\0\\0b"));
}

TEST(Blob, ToStringShowsByte0x80As0xFF80) {
  const TalStringT<WideChar> printed = BlobOf("\x80").ToString();
  EXPECT_EQ(printed.GetAt(printed.GetLength() - 1), WideChar{0xFF80});
}

TEST(Blob, BlobsWithEqualBytesAreEqual) {
  const Blob first = BlobOf("hello");
  const Blob second(BufferOfParts({"he", "llo"}));
  EXPECT_TRUE(first == second);
  EXPECT_TRUE(first.GetId() == second.GetId());
  EXPECT_TRUE(first != BlobOf("hellp"));
}

TEST(Blob, DiffersFromATreeWithEqualData) {
  const Blob blob;
  const Tree tree;
  EXPECT_EQ(Bytes(blob.GetData()), Bytes(tree.GetData()));
  EXPECT_TRUE(blob != tree);
  EXPECT_EQ(IdOf(tree), kEmptyTreeId);
}

TEST(Blob, SharesTheBytesOfItsBuffer) {
  const Buffer bytes = BufferOf("hello");
  const Blob blob(bytes);
  const Blob copy(blob);
  EXPECT_EQ(blob.GetData().GetSegment(0).data(), bytes.GetSegment(0).data());
  EXPECT_EQ(copy.GetData().GetSegment(0).data(), bytes.GetSegment(0).data());
  const Buffer& packed = blob.GetPackedData();
  EXPECT_EQ(packed.GetSegment(packed.GetSegmentCount() - 1).data(), bytes.GetSegment(0).data());
}

TEST(Blob, TakesOverAMovedBuffer) {
  Buffer bytes = BufferOf("hello");
  const Blob blob(std::move(bytes));
  EXPECT_EQ(Bytes(blob.GetData()), "hello");
  EXPECT_EQ(bytes.GetSize(), 0U);  // NOLINT(bugprone-use-after-move)
}

TEST(Blob, LaterChangesOfTheBufferDoNotChangeTheBlob) {
  Buffer bytes = BufferOf("hello");
  const Blob blob(bytes);
  bytes.Append("!", 1, 1);
  bytes.WriteAt(0, "J", 1);
  EXPECT_EQ(Bytes(blob.GetData()), "hello");
  EXPECT_EQ(IdOf(blob), kHelloId);
}

TEST(Blob, CopyHasTheCachedId) {
  const Blob blob = BlobOf("hello");
  blob.GetId();
  const Blob copy(blob);
  EXPECT_EQ(copy.GetId().View().text, blob.GetId().View().text);
}

TEST(Blob, AssignmentCopiesBytesAndCaches) {
  Blob target = BlobOf("old");
  target.GetId();
  target.GetPackedData();
  const Blob source = BlobOf("hello");
  target = source;
  EXPECT_EQ(IdOf(target), kHelloId);
  EXPECT_EQ(Bytes(target.GetPackedData()), std::string("blob 5\0hello", 12));
  EXPECT_EQ(Bytes(target.GetData()), "hello");
}

TEST(Blob, SelfAssignmentKeepsEverything) {
  Blob blob = BlobOf("hello");
  Blob& self = blob;
  blob = self;
  EXPECT_EQ(Bytes(blob.GetData()), "hello");
  EXPECT_EQ(IdOf(blob), kHelloId);
}

TEST(BlobMove, SourceKeepsIdAndPackedFormButNotItsBytes) {
  Blob source = BlobOf("hello");
  source.GetId();
  const Blob target(std::move(source));
  EXPECT_EQ(Bytes(target.GetData()), "hello");
  EXPECT_EQ(source.GetData().GetSize(), 0U);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(IdOf(source), kHelloId);
  EXPECT_EQ(Bytes(source.GetPackedData()), std::string("blob 5\0hello", 12));
  EXPECT_EQ(IdOf(target), kHelloId);
}

TEST(BlobMove, SourceWithACachedPackedFormHashesThat) {
  Blob source = BlobOf("hello");
  source.GetPackedData();
  const Blob target(std::move(source));
  EXPECT_EQ(Bytes(source.GetPackedData()),  // NOLINT(bugprone-use-after-move)
            std::string("blob 5\0hello", 12));
  EXPECT_EQ(IdOf(source), kHelloId);
}

TEST(BlobMove, SourceWithoutCachesBecomesAnEmptyBlob) {
  Blob source = BlobOf("hello");
  const Blob target(std::move(source));
  EXPECT_EQ(IdOf(source), kEmptyBlobId);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(IdOf(target), kHelloId);
}

TEST(BlobMove, AssignmentWorksLikeConstruction) {
  Blob source = BlobOf("hello");
  source.GetId();
  Blob target = BlobOf("old");
  target.GetId();
  target = std::move(source);
  EXPECT_EQ(IdOf(target), kHelloId);
  EXPECT_EQ(Bytes(target.GetData()), "hello");
  EXPECT_EQ(IdOf(source), kHelloId);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.GetData().GetSize(), 0U);
}

TEST(BlobMove, CopyOfAMovedFromBlobHasTheSameState) {
  Blob source = BlobOf("hello");
  source.GetId();
  const Blob target(std::move(source));
  const Blob copy(source);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(IdOf(copy), kHelloId);
  EXPECT_EQ(copy.GetData().GetSize(), 0U);
}

TEST(Blob, ComputeIdsCachesTheIdOfEach) {
  std::vector<Blob> blobs;
  const auto add = [&blobs](std::size_t size) {
    std::string bytes;
    for (std::size_t index = 0; index < size; ++index) bytes += static_cast<char>(index * 7 + 3);
    Buffer buffer = BufferOf(bytes.substr(0, size / 2));
    // Some lie in two segments.
    buffer.Append(BufferOf(bytes.substr(size / 2)));
    blobs.push_back(size % 5 == 0 ? Blob(std::move(buffer)) : BlobOf(bytes));
  };
  for (std::size_t size = 0; size < 600; ++size) add(size);
  add(5000);
  add(70000);
  std::vector<const Blob*> pointers{nullptr};
  for (const Blob& blob : blobs) pointers.push_back(&blob);
  Blob::ComputeIds(pointers);
  Blob::ComputeIds(pointers);
  std::string ids;
  for (const Blob& blob : blobs) ids += IdOf(blob);
  EXPECT_EQ(Ascii(Helpers::ComputeEncodedSHA256Hash(BufferOf(ids))),
            "607ce2a39315d11ac5ad6316d9bd150580776098f1bda0660aada74976d15ac9");
}

TEST(Blob, BuildPackedDataReturnsThePackedForm) {
  const Blob blob = BlobOf("hello");
  EXPECT_EQ(Bytes(blob.BuildPackedData()), std::string("blob 5\0hello", 12));
  blob.GetPackedData();
  EXPECT_EQ(Bytes(blob.BuildPackedData()), std::string("blob 5\0hello", 12));
}

TEST(Blob, HeaderHasTheSizeInDecimal) {
  const Blob blob{Buffer(std::size_t{1} << 20)};
  EXPECT_EQ(Bytes(blob.GetPackedData()).substr(0, 13), std::string("blob 1048576\0", 13));
  EXPECT_EQ(IdOf(blob), "92aaa187c4af5cb6b2b7fc0266543d22a25e6ca036580b55c9dc7ab3f6693898");
}

}  // namespace
}  // namespace TalVcs::Testing
