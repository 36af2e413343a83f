// Classes of hosts that derive from the library's own: what they override is what is hashed and
// saved.

#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>

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
  Repository repository = NewRepository();
  repository.SyncWithStorage(cow_ptr<TypeParam>(std::make_shared<Note<TypeParam>>()));
  MemoryBlobIo store;
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  const std::string id = kNoteId;
  EXPECT_EQ(store.streams["doc/.vcs/objects/" + id.substr(0, 2) + "/" + id.substr(2)], kPacked);
}

TEST(DerivedBlobs, HaveNoPartInIdsComputedTogether) {
  const Note<Blob> note;
  const Blob large = BlobOf(std::string(1000, 'x'));
  const Blob* const blobs[] = {&large, &note};
  Blob::ComputeIds(blobs);
  EXPECT_EQ(IdOf(note), kNoteId);
}

}  // namespace
}  // namespace TalVcs::Testing
