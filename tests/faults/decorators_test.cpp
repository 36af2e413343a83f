// Each allocation of a store that is made of other stores fails in turn. The next try has the
// result that the first would have had, and what the store remembers of the others is true.

#include <gtest/gtest.h>
#include <kit/memory_store.h>
#include <kit/open/copy.h>
#include <kit/store/blobs_as_object_store.h>
#include <kit/store/cache_store.h>
#include <kit/store/checksum_store.h>
#include <kit/store/object_store_as_blobs.h>
#include <kit/store/recording_store.h>
#include <kit/store/tee_store.h>
#include <tests/faults/fail_each.h>
#include <tests/kit/open/histories.h>

#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>

namespace TalVcs::Testing {
namespace {

using namespace Kit;

/// A document that is worked on through a store over two others.
template <class Upper>
struct Layers {
  std::shared_ptr<MemoryObjectStore> first = SmallStore();
  std::shared_ptr<MemoryObjectStore> second = std::make_shared<MemoryObjectStore>(*first);
  std::shared_ptr<Upper> upper;
};

/// Opens, edits and saves a document, and shows it.
std::string Work(const std::shared_ptr<IObjectStore>& store) {
  {
    OpenedRepository opened = Open(store).value();
    opened->RemoveBranch(Wide("fresh"));
    AddCommit(opened.GetRepository(), "fresh", {{"new/file", "new"}, {"new/other", "other"}});
    Save(opened).value();
  }
  OpenedRepository opened = Open(store).value();
  return HeadsOf(*store) + HistoryOf(opened.GetRepository());
}

TEST(FailingAllocationsOfDecorators, CacheStaysWithinItsLimit) {
  const auto prepare = [] {
    Layers<CacheStore> layers;
    layers.second = std::make_shared<MemoryObjectStore>();
    layers.upper = std::make_shared<CacheStore>(
        layers.second, layers.first, CacheOptions{.mostBytes = 1500, .keepsHeads = true});
    return layers;
  };
  EXPECT_GT(FailEach(prepare,
                     [](Layers<CacheStore>& layers) {
                       std::string text = Work(layers.upper);
                       const CacheStore& cache = *layers.upper;
                       EXPECT_TRUE(cache.GetFastStatus());
                       EXPECT_LE(cache.GetCachedBytes(), 1500U);
                       EXPECT_EQ(layers.second->GetSizeInBytes(), cache.GetCachedBytes());
                       return text;
                     }),
            200U);
}

TEST(FailingAllocationsOfDecorators, SecondStoreOfATeeFollows) {
  const auto prepare = [] {
    Layers<TeeStore> layers;
    layers.upper = std::make_shared<TeeStore>(layers.first, layers.second);
    return layers;
  };
  EXPECT_GT(FailEach(prepare,
                     [](Layers<TeeStore>& layers) {
                       std::string text = Work(layers.upper);
                       // It may have missed a move.
                       if (!layers.upper->Rejoin()) Copy(*layers.first, *layers.second).value();
                       layers.upper->Rejoin().value();
                       text += HeadsOf(*layers.second);
                       return text;
                     }),
            200U);
}

TEST(FailingAllocationsOfDecorators, PassingStoresCanBeRepeated) {
  const auto prepare = [] {
    Layers<RecordingStore> layers;
    layers.upper = std::make_shared<RecordingStore>(std::make_shared<ChecksumStore>(layers.first));
    return layers;
  };
  EXPECT_GT(FailEach(prepare,
                     [](Layers<RecordingStore>& layers) {
                       std::string text = Work(layers.upper);
                       EXPECT_FALSE(layers.upper->GetLog().empty());
                       return text;
                     }),
            200U);
}

TEST(FailingAllocationsOfAdapters, StreamsCarryADocument) {
  EXPECT_GT(FailEach([] { return std::make_unique<MemoryStore>(); },
                     [](std::unique_ptr<MemoryStore>& streams) {
                       Repository document = SmallHistory();
                       BlobsAsObjectStore store(*streams, *streams);
                       Save(document, store).value();
                       return HeadsOf(store) + std::to_string(ObjectsOf(store).size());
                     }),
            200U);
}

/// A store with a branch that a save of another document removes, as streams.
struct Streams {
  Streams() {
    Repository former = NewRepository();
    AddCommit(former, "former", {{"file", "former"}});
    Save(former, store).value();
  }

  Repository document = SmallHistory();
  MemoryObjectStore store;
  ObjectStoreAsBlobs adapter{store};
};

TEST(FailingAllocationsOfAdapters, StoreCarriesStreams) {
  EXPECT_GT(FailEach([] { return std::make_unique<Streams>(); },
                     [](std::unique_ptr<Streams>& streams) {
                       Serializer(&streams->adapter, {}).Serialize(streams->document.GetStorage());
                       streams->adapter.Commit().value();
                       Repository loaded = NewRepository();
                       Deserializer(&streams->adapter, {}).Deserialize(&loaded);
                       return HeadsOf(streams->store) + HistoryOf(loaded);
                     }),
            200U);
}

}  // namespace
}  // namespace TalVcs::Testing
