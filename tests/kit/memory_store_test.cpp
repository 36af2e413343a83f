#include <gtest/gtest.h>
#include <kit/memory_store.h>
#include <tests/kit/saved_states.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

void Put(MemoryStore& store, std::string_view path, std::string_view bytes) {
  ASSERT_TRUE(store.CommitBlobStream(Wide(path), StreamOf(bytes)));
}

TEST(MemoryStore, CountsStreamsAndBytes) {
  MemoryStore store;
  EXPECT_EQ(store.GetCount(), 0u);
  Put(store, "a", "four");
  Put(store, "b", "sixsix");
  EXPECT_EQ(store.GetCount(), 2u);
  EXPECT_EQ(store.GetSizeInBytes(), 10u);
}

TEST(MemoryStore, CopyIsAStoreOfItsOwn) {
  MemoryStore store;
  Put(store, "a", "1");
  MemoryStore copy = store;
  Put(copy, "b", "2");
  copy.RemoveStorage(Wide("nothing"));
  EXPECT_EQ(store.GetCount(), 1u);
  EXPECT_EQ(copy.GetCount(), 2u);
  store = copy;
  EXPECT_EQ(store.GetCount(), 2u);
}

TEST(MemoryStore, MovedFromStoreIsEmpty) {
  MemoryStore store;
  Put(store, "a", "1");
  MemoryStore moved = std::move(store);
  EXPECT_EQ(moved.GetCount(), 1u);
  EXPECT_EQ(store.GetCount(), 0u);
  Put(store, "b", "2");
  moved = std::move(store);
  EXPECT_EQ(Ascii(moved.ListBlobs(Wide(""))).size(), 0u);
  EXPECT_TRUE(moved.OpenBlob(Wide("b")));
}

TEST(MemoryStore, ReaderOutlivesTheStream) {
  MemoryStore store;
  Put(store, "folder/a", "bytes");
  StreamIO reader = store.OpenBlob(Wide("folder/a"));
  store.RemoveStorage(Wide("folder"));
  EXPECT_FALSE(store.OpenBlob(Wide("folder/a")));
  Buffer bytes;
  ASSERT_TRUE(reader.ReadToEnd(bytes));
  EXPECT_EQ(Bytes(bytes), "bytes");
}

TEST(MemoryStore, SavedBlobSharesItsBytesWithTheStore) {
  Repository repository = NewRepository();
  const std::string text(100000, 'x');
  const cow_ptr<Blob> blob = repository.SyncWithStorage(SharedBlob(text));
  MemoryStore store;
  ASSERT_TRUE(Save(repository, store));
  const WideString path = PathBuilder(WideString()).GetObjectW(blob->GetId());
  Buffer loaded;
  ASSERT_TRUE(store.OpenBlob(path).ReadToEnd(loaded));
  const auto own = blob->GetData().GetSegment(0);
  bool shares = false;
  for (std::size_t index = 0; index < loaded.GetSegmentCount(); ++index) {
    shares = shares || loaded.GetSegment(index).data() == own.data();
  }
  EXPECT_TRUE(shares);
}

}  // namespace
}  // namespace TalVcs::Kit
