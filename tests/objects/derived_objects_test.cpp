// Classes of hosts that derive from the library's own: what they override is what is hashed and
// saved.

#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/copying_writer.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/ordinary_repository.h>

#include <memory>
#include <string>

namespace TalVcs::Testing {
namespace {

const std::string kPacked("note 3\0abc", 10);
// SHA-256 of these bytes.
constexpr char kNoteId[] = "a955929d5608db592271b0f98e521e8473c6c18c9a497b422a677e392c5f8112";

/// A blob, tree or commit that packs itself as a note.
template <class Base>
class Note : public Base {
 public:
  TalStringT<char> GetHeader() const override { return "note"; }
  const Buffer& GetData() const override { return m_data; }

 private:
  Buffer m_data = BufferOf("abc");
};

/// One that has its packed form at hand, so that nothing is kept beside it.
template <class Base>
class PackedNote final : public Note<Base> {
 public:
  const Buffer& GetPackedData() const override { return m_packed; }

 private:
  Buffer m_packed = BufferOf(kPacked);
};

template <class Base>
class DerivedObjects : public ::testing::Test {};

using Bases = ::testing::Types<Blob, Tree, Commit>;
TYPED_TEST_SUITE(DerivedObjects, Bases);

TYPED_TEST(DerivedObjects, HaveTheIdAndThePackedFormOfWhatTheyOverride) {
  const Note<TypeParam> note;
  EXPECT_EQ(Bytes(note.BuildPackedData()), kPacked);
  EXPECT_EQ(IdOf(note), kNoteId);
  EXPECT_EQ(Bytes(note.GetPackedData()), kPacked);
}

TYPED_TEST(DerivedObjects, AreSavedAsWhatTheyOverride) {
  Repository repository = NewOrdinaryRepository();
  repository.SyncWithStorage(cow_ptr<TypeParam>(std::make_shared<PackedNote<TypeParam>>()));
  const std::string id = kNoteId;
  const std::string path = "doc/.vcs/objects/" + id.substr(0, 2) + "/" + id.substr(2);
  MemoryBlobIo shared;
  ASSERT_TRUE(Serializer(&shared, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(shared.streams.at(path), kPacked);
  CopyingWriter copied;
  ASSERT_TRUE(Serializer(&copied, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(copied.streams.at(path)->bytes, kPacked);
}

/// A note that holds, as a blob, what would be hashed together with others.
class LargeNote final : public Note<Blob> {
 public:
  LargeNote() { Blob::operator=(BlobOf(std::string(1000, 'y'))); }
};

TEST(DerivedBlobs, HaveNoPartInIdsComputedTogether) {
  const LargeNote note;
  const Blob large = BlobOf(std::string(1000, 'x'));
  const Blob* const blobs[] = {&large, &note, &large};
  Blob::ComputeIds(blobs);
  EXPECT_EQ(IdOf(note), kNoteId);
  EXPECT_EQ(IdOf(large), "8d03eb17f82ab2055eda88a0f1aaf8be660c74fbfe318f48d1055cdb435c081c");
}

}  // namespace
}  // namespace TalVcs::Testing
