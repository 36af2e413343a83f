// What a `DirectoryObjectStore` does with its packs, indexes and large files.

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/internal/store_access.h>
#include <kit/store/object_codec.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/store/directory_packs_fixture.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::CountFiles;
using Testing::FaultyFileSystem;
using Testing::ReadWhole;
using Testing::TemporaryFolder;
using Testing::WriteWhole;
namespace fs = std::filesystem;

TEST_F(DirectoryPacks, DurableSaveWaitsTwiceForTheMedium) {
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStoreOptions durable = kQuick;
  durable.durable = true;
  DirectoryObjectStore store = StoreAccess::Create(m_folder.Path(), durable, files).value();
  Save(store, {Packed("one")});
  for (int save = 0; save < 20; ++save) {
    files->Restart();
    Save(store, {Packed("a" + std::to_string(save)), Packed("b" + std::to_string(save))});
    EXPECT_EQ(files->CallsOf("SyncFile"), 2);
    EXPECT_EQ(files->CallsOf("Sync"), 2);
    EXPECT_EQ(files->CallsOf("CreateFile"), 0);
  }
}

// Another process has written it and was killed before it waited.
TEST_F(DirectoryPacks, MoveWaitsForWhatAnotherStoreObjectHasWritten) {
  DirectoryObjectStore quick = Create();
  Save(quick, {Packed("one")});
  quick.Write({{Packed("two")}}).value();
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStoreOptions durable = kQuick;
  durable.durable = true;
  DirectoryObjectStore store = StoreAccess::Open(m_folder.Path(), durable, files).value();
  store.MoveHeads({{HeadMove{"master", Packed("one").id, Packed("two").id}}}).value();
  EXPECT_EQ(files->CallsOf("SyncFile 00000001.pack"), 1);
}

TEST_F(DirectoryPacks, ManySavesMakeFewFiles) {
  constexpr int kSaves = 2000;
  DirectoryObjectStore one = Create();
  DirectoryObjectStore other = Open();
  DirectoryObjectStore reader = Open();
  for (int save = 0; save < kSaves; ++save) {
    const std::string text = std::to_string(save);
    Save(save % 3 == 0 ? one : other, {Packed("a" + text), Packed("b" + text)});
    if (save % 100 == 0) {
      ASSERT_EQ(Read(reader, Packed("a" + text).id), "blob a" + text);
    }
  }
  EXPECT_LE(CountFiles(m_folder.Path()), 8);
  EXPECT_GE(Names(".index").size(), 1U);
  DirectoryObjectStore fresh = Open();
  for (DirectoryObjectStore* store : {&one, &other, &reader, &fresh}) {
    std::vector<Id> ids;
    for (int save = 0; save < kSaves; save += 7)
      ids.push_back(Packed("b" + std::to_string(save)).id);
    EXPECT_TRUE(store->Missing(ids).value().empty());
    EXPECT_EQ(store->Missing({{Packed("none").id}}).value().size(), 1U);
  }
}

TEST_F(DirectoryPacks, OpeningAStoreOfManyObjectsReadsLittle) {
  {
    DirectoryObjectStore store = Create();
    for (int batch = 0; batch < 10; ++batch) {
      std::vector<StoredObject> objects;
      for (int number = 0; number < 3000; ++number) {
        objects.push_back(Packed(std::to_string(batch * 3000 + number)));
      }
      store.Write(objects).value();
    }
  }
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStore store = StoreAccess::Open(m_folder.Path(), kQuick, files).value();
  EXPECT_EQ(files->Calls(), 2);  // the size and the bytes of the state
  EXPECT_EQ(Read(store, Packed("12345").id), "blob 12345");
  EXPECT_LT(files->Calls(), 40);
  files->Restart();
  EXPECT_EQ(Read(store, Packed("23456").id), "blob 23456");
  EXPECT_LT(files->Calls(), 15);
}

// A third of the time of a read went into the journal.
TEST_F(DirectoryPacks, ReadLooksAtTheJournalForWhatItDoesNotFindAlone) {
  DirectoryObjectStore other = Create();
  Save(other, {Packed("one"), Packed("two")});
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStore reader = StoreAccess::Open(m_folder.Path(), kQuick, files).value();
  EXPECT_EQ(Read(reader, Packed("one").id), "blob one");
  files->Restart();
  EXPECT_EQ(Read(reader, Packed("two").id), "blob two");
  EXPECT_EQ(files->CallsOf("ReadFile"), 0);
  // The pack that the reader knows is replaced by another one, which grows.
  EXPECT_EQ(RemoveAllBut(other, {Packed("one").id}).value().count, 1U);
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000002.pack"});
  EXPECT_EQ(Read(reader, Packed("one").id), "blob one");
  Save(other, {Packed("three")});
  EXPECT_EQ(Read(reader, Packed("three").id), "blob three");
  EXPECT_EQ(files->CallsOf("ReadFileFrom state"), 1);
  EXPECT_EQ(Read(reader, Packed("two").id), "NotFound");
  // Without a journal nobody knows what is missing.
  WriteWhole(File("state"), "anything");
  EXPECT_EQ(Read(reader, Packed("one").id), "blob one");
  EXPECT_EQ(Read(reader, Packed("two").id), "Damaged");
}

TEST_F(DirectoryPacks, OpeningAStoreOfLargeObjectsReadsLittle) {
  Id first;
  {
    DirectoryObjectStore store = Create();
    for (unsigned number = 0; number < 20; ++number) {
      const StoredObject object = Packed(NoiseOf(kMegabyte / 5, number));
      if (number == 0) first = object.id;
      store.Write({{object}}).value();
    }
  }
  EXPECT_GE(Names(".index").size(), 1U);
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStore store = StoreAccess::Open(m_folder.Path(), kQuick, files).value();
  EXPECT_TRUE(store.Missing({{first}}).value().empty());
  EXPECT_LT(files->CallsOf("ReadAt 00000001.pack"), 10);
}

TEST_F(DirectoryPacks, LargeObjectIsAFileUnlessItCanBeCompressed) {
  DirectoryObjectStore store = Create();
  const StoredObject noise = Packed(NoiseOf(kMegabyte + 5, 1));
  const StoredObject text = Packed(std::string(3 * kMegabyte, 'x'));
  store.Write({{noise, text}}).value();
  EXPECT_EQ(ReadWhole(FileOf(noise.id)), Testing::Bytes(noise.packed));
  EXPECT_EQ(fs::exists(FileOf(text.id)), !ObjectEncoder::CanCompress());
  DirectoryObjectStore other = Open();
  EXPECT_EQ(Read(other, noise.id), Testing::Bytes(noise.packed));
  EXPECT_EQ(Read(other, text.id), Testing::Bytes(text.packed));
  EXPECT_EQ(other.Sizes({{noise.id, text.id}}).value()[0], kMegabyte + 10);
  EXPECT_EQ(other.Sizes({{noise.id, text.id}}).value()[1], 3 * kMegabyte + 5);
}

// One that is there is taken for whole, with all that it names.
TEST_F(DirectoryPacks, LargeTreeGetsItsNameAfterWhatItNames) {
  const auto files = std::make_shared<FaultyFileSystem>();
  DirectoryObjectStoreOptions durable = kQuick;
  durable.durable = true;
  DirectoryObjectStore store = StoreAccess::Create(m_folder.Path(), durable, files).value();
  const Buffer packed = Testing::BufferOf("tree " + NoiseOf(kMegabyte + 5, 1));
  store.Write({{Packed("one"), {Id(packed), packed}, Packed("two")}}).value();
  const std::vector<std::string>& log = files->Log();
  const auto place = [&log](const std::string& call) {
    return std::find(log.begin(), log.end(), call) - log.begin();
  };
  const std::string name = Testing::Ascii(Id(packed)).substr(2);
  EXPECT_LT(place("SyncFile 00000001.pack"), place("Rename " + name));
  EXPECT_LT(place("Rename " + name), place("AppendFile 00000001.pack"));
  EXPECT_LT(place("AppendFile 00000001.pack"), std::ssize(log));
}

TEST_F(DirectoryPacks, UncompressedStoreReadsWhatIsCompressed) {
  const std::string text(1000, 'x');
  {
    DirectoryObjectStore store = Create();
    store.Write({{Packed(text)}}).value();
  }
  const auto size = fs::file_size(File("packs/00000001.pack"));
  DirectoryObjectStoreOptions plain = kQuick;
  plain.compress = false;
  DirectoryObjectStore store = DirectoryObjectStore::Open(m_folder.Path(), plain).value();
  store.Write({{Packed(text + "y", Packed(text).id)}}).value();
  EXPECT_GT(fs::file_size(File("packs/00000001.pack")), size + 1000);
  EXPECT_EQ(Read(store, Packed(text).id), "blob " + text);
  EXPECT_EQ(Read(store, Packed(text + "y").id), "blob " + text + "y");
}

TEST_F(DirectoryPacks, RemovalWritesAnewWhatLosesItsBase) {
  DirectoryObjectStore store = Create();
  std::vector<StoredObject> versions;
  std::string text = NoiseOf(3000, 1);
  for (int version = 0; version < 10; ++version) {
    text[static_cast<std::size_t>(version) * 100] = '!';
    versions.push_back(Packed(text, version == 0 ? Id() : versions.back().id));
    Save(store, {versions.back()});
  }
  const auto before = fs::file_size(File("packs/00000001.pack"));
  EXPECT_EQ(before < 7000, ObjectEncoder::CanCompress()) << before;
  const Result<RemovedObjects> removed =
      RemoveAllBut(store, {versions[4].id, versions[5].id, versions[9].id});
  EXPECT_EQ(removed.value().count, 7U);
  EXPECT_EQ(removed.value().sizeBytes, 7 * 3005U);
  DirectoryObjectStore other = Open();
  for (std::size_t version = 0; version < versions.size(); ++version) {
    const bool kept = version == 4 || version == 5 || version == 9;
    EXPECT_EQ(Read(other, versions[version].id),
              kept ? Testing::Bytes(versions[version].packed) : "NotFound");
  }
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000002.pack"});
}

TEST_F(DirectoryPacks, RemovalPutsSmallFilesIntoAPack) {
  Repository repository = Testing::OldState();
  {
    DirectoryStore former(m_folder.Path(), {.rootPath = Testing::Wide(""), .durable = false});
    ASSERT_TRUE(Testing::Save(repository, former) && former.Commit());
  }
  DirectoryObjectStore store = Open();
  store.Write({{Packed("new")}}).value();
  const std::vector<Id> ids = ListOf(store);
  const int files = CountFiles(File("objects"));
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(files) + 1);
  std::vector<std::string> before;
  for (const Id& id : ids) before.push_back(Read(store, id));
  EXPECT_EQ(RemoveAllBut(store, ids).value().count, 0U);
  EXPECT_EQ(CountFiles(File("objects")), 0);
  DirectoryObjectStore other = Open();
  EXPECT_EQ(ListOf(other), ids);
  std::vector<std::string> after;
  for (const Id& id : ids) after.push_back(Read(other, id));
  EXPECT_EQ(after, before);
}

TEST_F(DirectoryPacks, RemovalLeavesAPackInWhichEverythingIsKept) {
  DirectoryObjectStore store = Create();
  Save(store, {Packed("one")});
  EXPECT_EQ(RemoveAllBut(store, {Packed("one").id}).value().count, 0U);
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000001.pack"});
  EXPECT_EQ(RemoveAllBut(store, {}).value().count, 1U);
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000002.pack"});
  Save(store, {Packed("one")});
  EXPECT_EQ(Read(store, Packed("one").id), "blob one");
}

// A file that can't be removed now is gone for readers, and is removed later.
TEST_F(DirectoryPacks, RemovalThatEndsMidwayIsFinishedByTheNextWrite) {
  const StoredObject large = Packed(NoiseOf(kMegabyte + 5, 1));
  int removed_early = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    DirectoryObjectStore store = StoreAccess::Create(folder.Path(), kQuick, files).value();
    store.Write({{large, Packed("kept"), Packed("unused")}}).value();
    files->Restart();
    files->FailFrom(number, 1000);
    const bool ended = RemoveAllBut(store, {Packed("kept").id}).ok();
    const bool fired = files->HasFailed();
    files->FailFrom(0);
    const std::size_t missing = store.Missing({{large.id, Packed("unused").id}}).value().size();
    ASSERT_TRUE(missing == 0 || missing == 2) << number;
    ASSERT_EQ(Read(store, Packed("kept").id), "blob kept") << number;
    if (!ended && missing == 2) ++removed_early;
    ASSERT_TRUE(store.SetValue("a", "b").ok()) << number;
    ASSERT_EQ(CountFiles(folder.Path() / ".vcs/objects"), missing == 0 ? 1 : 0) << number;
    // The removal may have come between the look and the write of one save.
    if (!store.Write({{large}})) store.Write({{large}}).value();
    ASSERT_EQ(Read(store, large.id), Testing::Bytes(large.packed)) << number;
    if (!fired) break;
  }
  EXPECT_GT(removed_early, 1);
}

TEST_F(DirectoryPacks, StoreOfTheVersionBeforeIsReadAndThenUpgraded) {
  { Create(); }
  const std::string with_packs = ReadWhole(File("state"));
  const std::string before = "TalVcs store 2\nrequires\n" + with_packs.substr(30);
  WriteWhole(File("state"), before);
  DirectoryObjectStore store = Open();
  store.SetValue("current", "master").value();
  EXPECT_TRUE(ReadWhole(File("state")).starts_with(before));
  Save(store, {Packed("one")});
  EXPECT_TRUE(ReadWhole(File("state")).starts_with("TalVcs store 2\nrequires packs\n"));
  EXPECT_EQ(Open().Value("current").value(), "master");
}

}  // namespace
}  // namespace TalVcs::Kit
