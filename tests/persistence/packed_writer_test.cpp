#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/copying_writer.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/objects.h>
#include <tests/support/ordinary_repository.h>

#include <string>

namespace TalVcs::Testing {
namespace {

/// Files of all sizes around that of a piece, and so many that the list of entries is longer too.
Repository LargeRepository() {
  Repository repository = NewOrdinaryRepository();
  Commit commit(&repository, false);
  for (std::size_t number = 0; number < 300; ++number) {
    const std::string name = "file" + std::to_string(number);
    std::string bytes(number, static_cast<char>('a' + number % 26));
    if (number % 20 == 0) bytes.append(16384 - 11 + number / 20 - 7, '.');
    if (number % 50 == 0) bytes.append(40000, '-');
    commit.AddBlob(&repository, Wide(name), BlobOf(bytes));
  }
  repository.DoCommit(commit);
  return repository;
}

TEST(PackedWriter, WritesTheSameBytesToCopyingAndSharingStreams) {
  const Repository repository = LargeRepository();
  MemoryBlobIo shared;
  ASSERT_TRUE(Serializer(&shared, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  CopyingWriter copied;
  ASSERT_TRUE(Serializer(&copied, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  ASSERT_EQ(copied.streams.size(), shared.streams.size());
  for (const auto& [path, bytes] : shared.streams) {
    ASSERT_EQ(copied.streams.at(path)->bytes, bytes) << path;
  }
}

TEST(PackedWriter, StopsWhenTheStreamIsFull) {
  const Repository repository = LargeRepository();
  CopyingWriter whole;
  ASSERT_TRUE(Serializer(&whole, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  CopyingWriter cut(30000);
  ASSERT_TRUE(Serializer(&cut, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  int long_streams = 0;
  for (const auto& [path, stream] : whole.streams) {
    const CopyingStream& shortened = *cut.streams.at(path);
    EXPECT_EQ(shortened.bytes, stream->bytes.substr(0, 30000)) << path;
    EXPECT_LE(shortened.writes, 2) << path;
    if (stream->bytes.size() > 30000) ++long_streams;
  }
  EXPECT_GE(long_streams, 6);
}

TEST(PackedWriter, WritesACachedPackedForm) {
  Repository repository = NewOrdinaryRepository();
  Commit commit(&repository, false);
  commit.AddBlob(&repository, Wide("a"), BlobOf("bytes"));
  repository.DoCommit(commit);
  const IObjectsStorage& storage = *repository.GetStorage();
  const std::string packed_blob = Bytes(storage.GetBlobs().begin()->second->GetPackedData());
  const std::string packed_tree = Bytes(storage.GetTrees().begin()->second->GetPackedData());
  CopyingWriter copied;
  ASSERT_TRUE(Serializer(&copied, TAL_WIDE("doc")).Serialize(&storage));
  int found = 0;
  for (const auto& [path, stream] : copied.streams) {
    if (stream->bytes == packed_blob || stream->bytes == packed_tree) ++found;
  }
  EXPECT_EQ(found, 2);
}

}  // namespace
}  // namespace TalVcs::Testing
