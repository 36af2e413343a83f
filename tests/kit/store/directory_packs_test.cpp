// What a `DirectoryObjectStore` does with its packs, indexes and large files.

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/internal/pack_record.h>
#include <kit/internal/store_access.h>
#include <kit/store/object_codec.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/digits.h>
#include <tests/support/text.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <span>
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

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

const DirectoryObjectStoreOptions kQuick{.durable = false,
                                         .busyTimeout = std::chrono::milliseconds(0)};

StoredObject Packed(const std::string& text, const Id& previous = Id()) {
  const Buffer packed = Testing::BufferOf("blob " + text);
  return {Id(packed), packed, previous};
}

std::string NoiseOf(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string noise(size, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  return noise;
}

/// Returns the packed form, or the name of the error.
std::string Read(IObjectStore& store, const Id& id) {
  std::string read;
  store
      .Read({&id, 1},
            [&](const Id&, Result<Buffer> packed) {
              read = packed ? Testing::Bytes(*packed) : ToString(packed.error().code);
            })
      .value();
  return read;
}

std::vector<Id> ListOf(IObjectStore& store) {
  std::vector<Id> listed;
  const auto take = [&listed](std::span<const Id> ids) {
    listed.insert(listed.end(), ids.begin(), ids.end());
    return true;
  };
  store.List(take).value();
  return listed;
}

class DirectoryPacks : public testing::Test {
 protected:
  DirectoryObjectStore Open() {
    return DirectoryObjectStore::Open(m_folder.Path(), kQuick).value();
  }
  DirectoryObjectStore Create() {
    return DirectoryObjectStore::Create(m_folder.Path(), kQuick).value();
  }
  fs::path File(const std::string& name) const { return m_folder.Path() / ".vcs" / name; }
  fs::path FileOf(const Id& id) const {
    const std::string digits = Testing::Ascii(id);
    return File("objects/" + digits.substr(0, 2) + "/" + digits.substr(2));
  }
  std::vector<std::string> Names(const std::string& ending) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(File("packs"))) {
      const std::string name = entry.path().filename().string();
      if (name.ends_with(ending)) names.push_back(name);
    }
    return names;
  }

  /// Writes the objects and moves "master" to the last of them.
  static void Save(IObjectStore& store, const std::vector<StoredObject>& objects) {
    store.Write(objects).value();
    const std::vector<Head> heads = store.Heads().value();
    const Id before = heads.empty() ? Id() : heads.front().id;
    store.MoveHeads({{HeadMove{"master", before, objects.back().id}}}).value();
  }
  static Result<RemovedObjects> RemoveAllBut(IObjectStore& store, const std::vector<Id>& kept) {
    return store.RemoveUnmarked([&kept](std::span<const Head>) { return Result(kept); });
  }

  TemporaryFolder m_folder;
};

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
  EXPECT_EQ(files->Calls(), 1);
  EXPECT_EQ(Read(store, Packed("12345").id), "blob 12345");
  EXPECT_LT(files->Calls(), 40);
  files->Restart();
  EXPECT_EQ(Read(store, Packed("23456").id), "blob 23456");
  EXPECT_LT(files->Calls(), 15);
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

/// A store of three versions of a text and of an index, with everything that it holds.
class DamagedPacks : public DirectoryPacks {
 protected:
  DamagedPacks() {
    DirectoryObjectStore store = Create();
    std::string text = NoiseOf(400, 1);
    Id previous;
    for (int version = 0; version < 3; ++version) {
      text += std::to_string(version);
      m_objects.push_back(Packed("note " + std::to_string(version)));
      m_objects.push_back(Packed(text, previous));
      Save(store, {m_objects.end()[-2], m_objects.back()});
      previous = m_objects.back().id;
    }
    m_pack = ReadWhole(File("packs/00000001.pack"));
    m_state = ReadWhole(File("state"));
  }

  /// Opens the store with these bytes as its pack; returns how many of its objects aren't whole.
  int CountDamaged(const std::string& pack) {
    fs::remove_all(File("packs"));
    fs::create_directory(File("packs"));
    WriteWhole(File("packs/00000001.pack"), pack);
    WriteWhole(File("state"), m_state);
    DirectoryObjectStore store = Open();
    EXPECT_EQ(store.Heads().value().front().id, m_objects.back().id);
    int damaged = 0;
    for (const StoredObject& object : m_objects) {
      const std::string read = Read(store, object.id);
      if (read == Testing::Bytes(object.packed)) continue;
      ++damaged;
      EXPECT_TRUE(read == "Damaged" || read == "NotFound" || read == "Unsupported") << read;
    }
    // What is damaged harms no later save.
    Save(store, {Packed("later")});
    EXPECT_EQ(Read(store, Packed("later").id), "blob later");
    DirectoryObjectStore other = Open();
    EXPECT_EQ(Read(other, Packed("later").id), "blob later");
    return damaged;
  }

  std::vector<StoredObject> m_objects;
  std::string m_pack;
  std::string m_state;
};

TEST_F(DamagedPacks, ChangedByteHarmsOneObjectAndItsDifferencesAlone) {
  int most = 0;
  for (std::size_t at = 0; at < m_pack.size(); ++at) {
    std::string pack = m_pack;
    pack[at] = static_cast<char>(pack[at] ^ (at % 2 == 0 ? 0x01 : 0xFF));
    const int damaged = CountDamaged(pack);
    ASSERT_EQ(damaged > 0, at >= 14) << at;
    ASSERT_LE(damaged, 3) << at;
    ASSERT_FALSE(HasFailure()) << at;
    most = std::max(most, damaged);
  }
  EXPECT_EQ(most, ObjectEncoder::CanCompress() ? 3 : 1);
}

TEST_F(DamagedPacks, PackThatIsCutLosesItsEndAlone) {
  int before = 0;
  for (std::size_t size = m_pack.size() - 1; size >= 14; size -= 3) {
    const int damaged = CountDamaged(m_pack.substr(0, size));
    ASSERT_GE(damaged, before) << size;
    ASSERT_FALSE(HasFailure()) << size;
    before = damaged;
  }
  EXPECT_EQ(before, 6);
}

TEST_F(DamagedPacks, TornRecordIsCutOffByTheNextWrite) {
  EXPECT_EQ(CountDamaged(m_pack + m_pack.substr(14, 50)), 0);
  EXPECT_EQ(ReadWhole(File("packs/00000001.pack")).substr(0, m_pack.size()), m_pack);
  EXPECT_EQ(fs::file_size(File("packs/00000001.pack")), m_pack.size() + 36 + 12 + 4);
  EXPECT_EQ(CountDamaged(m_pack + std::string(500, '\0')), 0);
  EXPECT_EQ(fs::file_size(File("packs/00000001.pack")), m_pack.size() + 36 + 12 + 4);
}

TEST_F(DamagedPacks, MissingPackIsDamageAndNotAnEmptyStore) {
  fs::remove(File("packs/00000001.pack"));
  DirectoryObjectStore store = Open();
  EXPECT_EQ(store.Heads().value().size(), 1U);
  EXPECT_EQ(Read(store, m_objects.front().id), "Damaged");
  EXPECT_EQ(store.Missing({{m_objects.front().id}}).error().code, ErrorCode::Damaged);
  EXPECT_EQ(store.Write({{Packed("later")}}).error().code, ErrorCode::Damaged);
}

TEST_F(DamagedPacks, RemovalPutsThePacksTogether) {
  EXPECT_EQ(CountDamaged(m_pack.substr(0, m_pack.size() - 1)), 1);
  EXPECT_EQ(Names(".pack").size(), 2U);
  DirectoryObjectStore store = Open();
  const std::vector<Id> kept = ListOf(store);
  EXPECT_EQ(kept.size(), 6U);
  EXPECT_EQ(RemoveAllBut(store, kept).value().count, 0U);
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000003.pack"});
  DirectoryObjectStore other = Open();
  EXPECT_EQ(Read(other, m_objects[3].id), Testing::Bytes(m_objects[3].packed));
  EXPECT_EQ(Read(other, Packed("later").id), "blob later");
}

// A repair puts it there.
TEST_F(DamagedPacks, NewestRecordOfAnObjectCounts) {
  const StoredObject& first = m_objects.front();
  const ObjectKey key = *KeyFromId(first.id);
  std::string pack(kPackTitle);
  AppendPackRecord(pack, key, "\1damaged");
  pack += m_pack.substr(14);
  EXPECT_EQ(CountDamaged(pack), 0);
  std::vector<Id> kept = {Packed("later").id};
  for (const StoredObject& object : m_objects) kept.push_back(object.id);
  DirectoryObjectStore store = Open();
  EXPECT_EQ(RemoveAllBut(store, kept).value().count, 0U);
  EXPECT_EQ(Names(".pack"), std::vector<std::string>{"00000002.pack"});
  EXPECT_EQ(ReadWhole(File("packs/00000002.pack")).find("damaged"), std::string::npos);
  EXPECT_EQ(Read(store, first.id), Testing::Bytes(first.packed));
  EXPECT_EQ(ListOf(store).size(), 7U);
}

TEST_F(DamagedPacks, MoveIsBusyAfterAWriteWasTakenBack) {
  DirectoryObjectStore store = Open();
  DirectoryObjectStore other = Open();
  store.Write({{Packed("later")}}).value();
  EXPECT_TRUE(other.Missing({{Packed("later").id}}).value().empty());
  fs::resize_file(File("packs/00000001.pack"), m_pack.size());
  const HeadMove move{"topic", Id(), Packed("later").id};
  EXPECT_EQ(other.MoveHeads({&move, 1}).error().code, ErrorCode::Busy);
  EXPECT_EQ(other.Missing({{Packed("later").id}}).value().size(), 1U);
}

TEST_F(DirectoryPacks, DamagedIndexIsNoLoss) {
  std::vector<Id> ids;
  {
    DirectoryObjectStore store = Create();
    std::vector<StoredObject> objects;
    for (int number = 0; number < 1200; ++number) {
      objects.push_back(Packed(std::to_string(number)));
      ids.push_back(objects.back().id);
    }
    Save(store, objects);
  }
  ASSERT_EQ(Names(".index").size(), 1U);
  const fs::path index = File("packs/" + Names(".index").front());
  const std::string bytes = ReadWhole(index);
  for (std::size_t at = 0; at < bytes.size(); at += 509) {
    std::string damaged = bytes;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x04);
    WriteWhole(index, at % 2 == 0 ? damaged : bytes.substr(0, at));
    DirectoryObjectStore store = Open();
    ASSERT_TRUE(store.Missing(ids).value().empty()) << at;
    ASSERT_EQ(Read(store, ids[at % 1200]), "blob " + std::to_string(at % 1200)) << at;
  }
  const std::string name = Names(".index").front();
  Save(*std::make_unique<DirectoryObjectStore>(Open()), {Packed("new")});
  EXPECT_NE(Names(".index"), std::vector<std::string>{name});
  EXPECT_EQ(Names(".index").size(), 1U);
  EXPECT_TRUE(Open().Missing(ids).value().empty());
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
    store.Write({{large}}).value();
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
