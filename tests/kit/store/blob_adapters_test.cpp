#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/memory_store.h>
#include <kit/store/blobs_as_object_store.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/object_store_as_blobs.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>

#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
using Testing::Describe;

template <class Blobs>
struct BlobsHolder {
  template <class... Arguments>
  explicit BlobsHolder(Arguments&&... arguments) : blobs(std::forward<Arguments>(arguments)...) {}

  Blobs blobs;
};

/// An adapter with the store of streams that it works on.
template <class Blobs>
class AdaptedStore final : private BlobsHolder<Blobs>, public BlobsAsObjectStore {
 public:
  template <class... Arguments>
  explicit AdaptedStore(EndChange (*end)(Blobs&), Arguments&&... arguments)
      : BlobsHolder<Blobs>(std::forward<Arguments>(arguments)...),
        BlobsAsObjectStore(this->blobs, this->blobs, "root", end(this->blobs)) {}
};

BlobsAsObjectStore::EndChange NoEnd(MemoryStore& /*store*/) { return {}; }

BlobsAsObjectStore::EndChange EndTransaction(DirectoryStore& store) {
  return [&store](bool succeeded) {
    if (!succeeded) store.Abandon();
    if (succeeded && store.Commit()) return Status();
    Error error;
    error.code = ErrorCode::Unavailable;
    error.message = store.LastError();
    return Status(error);
  };
}

/// A store in memory, as a store of streams.
class MemoryBlobs final : public IBlobReader, public IBlobWriter {
 public:
  Stream CreateBlobStream(const WideString& path) override {
    return m_blobs.CreateBlobStream(path);
  }
  bool CommitBlobStream(const WideString& path, Stream stream) override {
    return m_blobs.CommitBlobStream(path, stream);
  }
  void RemoveStorage(const WideString& path) override { m_blobs.RemoveStorage(path); }
  StreamIO OpenBlob(const WideString& path) override { return m_blobs.OpenBlob(path); }
  std::vector<WideString> ListBlobs(const WideString& path) override {
    return m_blobs.ListBlobs(path);
  }
  ObjectStoreAsBlobs& Blobs() { return m_blobs; }

 private:
  MemoryObjectStore m_store;
  ObjectStoreAsBlobs m_blobs{m_store, "root"};
};

BlobsAsObjectStore::EndChange EndSave(MemoryBlobs& blobs) {
  return [&blobs](bool succeeded) {
    if (!succeeded) blobs.Blobs().Abandon();
    return blobs.Blobs().Commit();
  };
}

StoreOpener MakeMemoryStore() {
  return [] { return std::make_unique<AdaptedStore<MemoryStore>>(NoEnd); };
}

StoreOpener MakeDirectoryStore() {
  return [folder = std::make_shared<TemporaryFolder>()] {
    const DirectoryStoreOptions options{.rootPath = Wide("root"), .durable = false};
    return std::make_unique<AdaptedStore<DirectoryStore>>(EndTransaction, folder->Path(), options);
  };
}

StoreOpener MakeThereAndBack() {
  return [] { return std::make_unique<AdaptedStore<MemoryBlobs>>(EndSave); };
}

StoreKind StreamsKind(StoreOpener (*makePlace)()) {
  StoreKind kind;
  kind.makePlace = makePlace;
  kind.removes = false;
  kind.keepsValues = false;
  kind.keepsEmptyObjects = false;
  return kind;
}

INSTANTIATE_TEST_SUITE_P(MemoryStore, ObjectStoreSuite,
                         testing::Values(StreamsKind(MakeMemoryStore)));
INSTANTIATE_TEST_SUITE_P(DirectoryStore, ObjectStoreSuite,
                         testing::Values(StreamsKind(MakeDirectoryStore)));
INSTANTIATE_TEST_SUITE_P(ThereAndBack, ObjectStoreSuite,
                         testing::Values(StreamsKind(MakeThereAndBack)));

bool SaveAndCommit(Repository& repository, ObjectStoreAsBlobs& blobs) {
  const bool saved = Save(repository, blobs);
  const Status status = blobs.Commit();
  return saved && status;
}

TEST(ObjectStoreAsBlobs, SavedRepositoryIsLoaded) {
  MemoryObjectStore store;
  ObjectStoreAsBlobs blobs(store);
  Repository repository = OldState();
  ASSERT_TRUE(SaveAndCommit(repository, blobs));
  EXPECT_EQ(Load(blobs), Describe(repository));
}

TEST(ObjectStoreAsBlobs, SaveReplacesTheBranchesAndKeepsObjects) {
  MemoryObjectStore store;
  ObjectStoreAsBlobs blobs(store);
  Repository before = OldState();
  Repository after = NewState();
  ASSERT_TRUE(SaveAndCommit(before, blobs));
  const std::size_t objects = store.GetCount();
  ASSERT_TRUE(SaveAndCommit(after, blobs));
  EXPECT_EQ(Load(blobs), Describe(after));
  EXPECT_GT(store.GetCount(), objects);
}

TEST(ObjectStoreAsBlobs, NothingMovesBeforeTheCommit) {
  MemoryObjectStore store;
  ObjectStoreAsBlobs blobs(store);
  Repository before = OldState();
  Repository after = NewState();
  ASSERT_TRUE(SaveAndCommit(before, blobs));
  ASSERT_TRUE(Save(after, blobs));
  EXPECT_EQ(Load(blobs), Describe(before));
  blobs.Abandon();
  ASSERT_TRUE(blobs.Commit().ok());
  EXPECT_EQ(Load(blobs), Describe(before));
}

TEST(ObjectStoreAsBlobs, CommitFailsWhenABranchHasMovedMeanwhile) {
  MemoryObjectStore store;
  ObjectStoreAsBlobs blobs(store);
  ObjectStoreAsBlobs others(store);
  Repository before = OldState();
  Repository after = NewState();
  ASSERT_TRUE(SaveAndCommit(before, blobs));
  ASSERT_TRUE(Save(after, blobs));
  Repository empty = NewRepository();
  ASSERT_TRUE(SaveAndCommit(empty, others));
  const Status late = blobs.Commit();
  ASSERT_FALSE(late.ok());
  EXPECT_EQ(late.error().code, ErrorCode::Conflict);
  EXPECT_EQ(store.Heads().value(), std::vector<Head>());
}

TEST(ObjectStoreAsBlobs, SaveIsNotCommittedIfAnyCallOfTheStoreFails) {
  Repository before = OldState();
  Repository after = NewState();
  int failures = 0;
  for (bool fired = true; fired;) {
    MemoryObjectStore store;
    FaultInjectionStore faulty(store);
    ObjectStoreAsBlobs blobs(faulty);
    ASSERT_TRUE(SaveAndCommit(before, blobs));
    faulty.Restart();
    faulty.FailFrom(failures + 1);
    const bool saved = SaveAndCommit(after, blobs);
    fired = faulty.HasFailed();
    failures += fired ? 1 : 0;
    EXPECT_EQ(saved, !fired);
    EXPECT_EQ(blobs.LastStatus().ok(), !fired);
    faulty.FailFrom(0);
    EXPECT_EQ(Load(blobs), Describe(fired ? before : after)) << failures;
  }
  EXPECT_GE(failures, 3);
}

TEST(ObjectStoreAsBlobs, OtherStreamsAreRefused) {
  MemoryObjectStore store;
  ObjectStoreAsBlobs blobs(store, "root");
  Stream stream = blobs.CreateBlobStream(Wide("elsewhere"));
  EXPECT_FALSE(blobs.CommitBlobStream(Wide("elsewhere"), stream));
  EXPECT_EQ(blobs.Commit().error().code, ErrorCode::Unsupported);
}

TEST(BlobsAsObjectStore, ReadsWhatASerializerHasWritten) {
  MemoryStore streams;
  Repository repository = OldState();
  ASSERT_TRUE(Save(repository, streams));
  BlobsAsObjectStore store(streams, streams);
  const std::vector<Head> heads = store.Heads().value();
  ASSERT_EQ(heads.size(), 2U);
  EXPECT_EQ(heads[0].name, "master");
  EXPECT_EQ(Ascii(heads[0].id), IdOf(repository.GetHead(Wide("master"))));
  int commits = 0;
  ASSERT_TRUE(
      store.ReadHistory(heads[1].id, 10, [&](const Id&, Result<Buffer>) { ++commits; }).ok());
  EXPECT_EQ(commits, 2);
}

/// A reader that returns an empty stream for a path without bytes, as every reader may.
class EmptyWhereMissing final : public IBlobReader {
 public:
  explicit EmptyWhereMissing(MemoryStore& streams) : m_streams(streams) {}

  StreamIO OpenBlob(const WideString& path) override {
    const StreamIO stream = m_streams.OpenBlob(path);
    return stream ? stream : StreamIO(MemStream::Create(0));
  }
  std::vector<WideString> ListBlobs(const WideString& path) override {
    return m_streams.ListBlobs(path);
  }

 private:
  MemoryStore& m_streams;
};

// A save skipped every object, because each seemed to be there.
TEST(BlobsAsObjectStore, ObjectWithAnEmptyStreamIsMissing) {
  MemoryStore streams;
  EmptyWhereMissing reader(streams);
  BlobsAsObjectStore store(reader, streams);
  const Blob blob = BlobFromBytes("text");
  const Id id = blob.GetId();
  EXPECT_EQ(store.Missing({&id, 1}).value(), std::vector<Id>{id});
  EXPECT_EQ(store.Sizes({&id, 1}).value().front(), std::nullopt);
  const StoredObject object{id, blob.GetPackedData()};
  ASSERT_TRUE(store.Write({&object, 1}).ok());
  EXPECT_EQ(store.Missing({&id, 1}).value(), std::vector<Id>());
  EXPECT_EQ(store.Sizes({&id, 1}).value().front(), 11u);
}

/// A writer that refuses every stream.
class RefusingWriter final : public IBlobWriter {
 public:
  Stream CreateBlobStream(const WideString& /*path*/) override { return {}; }
  bool CommitBlobStream(const WideString& /*path*/, Stream /*stream*/) override { return false; }
  void RemoveStorage(const WideString& /*path*/) override {}
};

TEST(BlobsAsObjectStore, ErrorNamesTheObjectThatWasRefused) {
  MemoryStore streams;
  RefusingWriter writer;
  BlobsAsObjectStore store(streams, writer);
  const Blob blob = BlobFromBytes("text");
  const StoredObject object{blob.GetId(), blob.GetPackedData()};
  const Status status = store.Write({&object, 1});
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Unavailable);
  EXPECT_EQ(status.error().subject, ToUtf8(object.id.View()));
  const HeadMove move{"master", Id(), object.id};
  EXPECT_EQ(store.MoveHeads({&move, 1}).error().code, ErrorCode::Unknown);
}

TEST(BlobsAsObjectStore, BranchWithoutAnIdIsDamaged) {
  MemoryStore streams;
  Stream stream = streams.CreateBlobStream(Wide(""));
  ASSERT_TRUE(streams.CommitBlobStream(Wide("/.vcs/refs/heads/master"), stream));
  BlobsAsObjectStore store(streams, streams);
  const Result<std::vector<Head>> heads = store.Heads();
  ASSERT_FALSE(heads.ok());
  EXPECT_EQ(heads.error().code, ErrorCode::Damaged);
  EXPECT_EQ(heads.error().subject, "master");
}

}  // namespace
}  // namespace TalVcs::Kit
