#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/objects.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>

namespace TalVcs::Testing {
namespace {

constexpr std::size_t kEndless = static_cast<std::size_t>(-1);

/// A stream that copies what it takes, `room` bytes at most.
class CopyingStream final : public IStream {
 public:
  explicit CopyingStream(std::size_t room) : m_room(room) {}

  std::size_t Read(void*, std::size_t) override { return 0; }
  std::size_t Write(const void* data, std::size_t size) override {
    ++writes;
    const std::size_t taken = std::min(size, m_room - bytes.size());
    bytes.append(static_cast<const char*>(data), taken);
    return taken;
  }
  bool Seek(std::uint64_t position) override { return position <= bytes.size(); }
  std::uint64_t GetPosition() const override { return bytes.size(); }
  std::uint64_t GetSize() const override { return bytes.size(); }

  std::string bytes;
  int writes = 0;

 private:
  std::size_t m_room;
};

/// Keeps the streams of a save, by path.
class CopyingWriter final : public IBlobWriter {
 public:
  explicit CopyingWriter(std::size_t room = kEndless) : m_room(room) {}

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override {
    auto stream = std::make_shared<CopyingStream>(m_room);
    streams[Ascii(path)] = stream;
    return Stream(stream);
  }
  bool CommitBlobStream(const TalStringT<WideChar>&, Stream) override { return true; }
  void RemoveStorage(const TalStringT<WideChar>&) override { streams.clear(); }

  std::map<std::string, std::shared_ptr<CopyingStream>> streams;

 private:
  std::size_t m_room;
};

/// Files of all sizes around that of a piece, and so many that the list of entries is longer too.
Repository LargeRepository() {
  Repository repository = NewRepository();
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

TEST(PackedWriter, CopiedStreamsHoldWhatSharedOnesDo) {
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

TEST(PackedWriter, StreamThatIsFullGetsNoMore) {
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

TEST(PackedWriter, KeptPackedFormIsWhatIsWritten) {
  Repository repository = NewRepository();
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
