#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/digits.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
using Testing::Describe;
namespace fs = std::filesystem;

/// Opens the store in a folder of its own, or makes it.
template <bool durable>
StoreOpener MakeFolderPlace() {
  return [folder = std::make_shared<TemporaryFolder>()]() -> std::unique_ptr<IObjectStore> {
    const DirectoryObjectStoreOptions options{.durable = durable};
    Result<DirectoryObjectStore> store = DirectoryObjectStore::Open(folder->Path(), options);
    if (!store) store = DirectoryObjectStore::Create(folder->Path(), options);
    return std::make_unique<DirectoryObjectStore>(std::move(store).value());
  };
}

INSTANTIATE_TEST_SUITE_P(DurableDirectory, ObjectStoreSuite,
                         testing::Values(StoreKind{MakeFolderPlace<true>, true}));
INSTANTIATE_TEST_SUITE_P(Directory, ObjectStoreSuite,
                         testing::Values(StoreKind{MakeFolderPlace<false>, true}));

/// The objects "blob 3 NUL one" and "blob 3 NUL two" in a pack; made with Python's zlib.crc32.
const std::string kPackOfTwo =
    "TalVcs pack 1\n" +
    BytesFromDigits(
        "4f0c0000437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3"
        "000a626c6f622033006f6e65f79d0b70"
        "4f0c00009d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64"
        "000a626c6f6220330074776f698e6f22");

const DirectoryObjectStoreOptions kQuick{.durable = false,
                                         .busyTimeout = std::chrono::milliseconds(0)};

class DirectoryObjectStoreTest : public testing::Test {
 protected:
  DirectoryObjectStore Open() {
    return DirectoryObjectStore::Open(m_folder.Path(), kQuick).value();
  }
  DirectoryObjectStore Create() {
    return DirectoryObjectStore::Create(m_folder.Path(), kQuick).value();
  }
  ErrorCode ErrorOfOpen() {
    const Result<DirectoryObjectStore> store = DirectoryObjectStore::Open(m_folder.Path(), kQuick);
    return store ? ErrorCode::Unknown : store.error().code;
  }
  DirectoryStore OpenFormer() {
    return DirectoryStore(m_folder.Path(), {.rootPath = Wide(""), .durable = false});
  }
  void SaveFormer(Repository& repository) {
    DirectoryStore store = OpenFormer();
    ASSERT_TRUE(Save(repository, store) && store.Commit()) << store.LastError();
  }

  fs::path File(const std::string& name) const { return m_folder.Path() / ".vcs" / name; }
  std::string State() const { return ReadWhole(File("state")); }
  static Status Move(IObjectStore& store, HeadMove move) { return store.MoveHeads({&move, 1}); }

  TemporaryFolder m_folder;
  const StoredObject m_one = Stored(
      "437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
  const StoredObject m_two = Stored(
      "9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64", {"blob 3\0two", 10});
};

TEST_F(DirectoryObjectStoreTest, OpenFindsNoStoreInAnEmptyOrMissingFolder) {
  EXPECT_EQ(ErrorOfOpen(), ErrorCode::NotFound);
  fs::create_directories(File("objects"));
  EXPECT_EQ(ErrorOfOpen(), ErrorCode::NotFound);
  const Result<DirectoryObjectStore> absent =
      DirectoryObjectStore::Open(m_folder.Path() / "absent");
  ASSERT_FALSE(absent.ok());
  EXPECT_EQ(absent.error().code, ErrorCode::NotFound);
  EXPECT_FALSE(fs::exists(m_folder.Path() / "absent"));
}

TEST_F(DirectoryObjectStoreTest, CreateRefusesAStoreThatIsThere) {
  Create();
  const std::string before = State();
  const Result<DirectoryObjectStore> again = DirectoryObjectStore::Create(m_folder.Path(), kQuick);
  ASSERT_FALSE(again.ok());
  EXPECT_EQ(again.error().code, ErrorCode::Conflict);
  EXPECT_EQ(State(), before);
}

TEST_F(DirectoryObjectStoreTest, CreateMakesTheLastFolderAlone) {
  const fs::path folder = m_folder.Path() / "new";
  EXPECT_TRUE(DirectoryObjectStore::Create(folder, kQuick).ok());
  const Result<DirectoryObjectStore> deep =
      DirectoryObjectStore::Create(m_folder.Path() / "a" / "b", kQuick);
  ASSERT_FALSE(deep.ok());
  EXPECT_EQ(deep.error().code, ErrorCode::NotFound);
}

// The store looked below the new working folder, and could have saved into another store there.
TEST_F(DirectoryObjectStoreTest, RelativePathStaysThatOfTheFirstWorkingFolder) {
  const fs::path former = fs::current_path();
  fs::current_path(m_folder.Path());
  fs::create_directory("other");
  DirectoryObjectStore store = DirectoryObjectStore::Create("document/", kQuick).value();
  fs::current_path("other");
  EXPECT_TRUE(store.Write({&m_one, 1}).ok());
  EXPECT_TRUE(Move(store, {"master", Id(), m_one.id}).ok());
  fs::current_path(former);
  EXPECT_TRUE(fs::is_empty(m_folder.Path() / "other"));
  DirectoryObjectStore again = DirectoryObjectStore::Open(m_folder.Path() / "document").value();
  EXPECT_EQ(again.Heads().value().size(), 1u);
}

#ifndef _WIN32
TEST_F(DirectoryObjectStoreTest, TextsOfAnErrorAreUtf8) {
  const Result<DirectoryObjectStore> store =
      DirectoryObjectStore::Open(m_folder.Path() / "\xff", kQuick);
  ASSERT_FALSE(store.ok());
  EXPECT_TRUE(ToWideExactly(Describe(store.error()))) << Describe(store.error());
}
#endif

TEST_F(DirectoryObjectStoreTest, ObjectsWithoutAStateAreDamage) {
  {
    DirectoryObjectStore store = Create();
    ASSERT_TRUE(store.Write({{m_one}}).ok());
  }
  fs::remove(File("state"));
  EXPECT_EQ(ErrorOfOpen(), ErrorCode::Damaged);
  EXPECT_FALSE(DirectoryObjectStore::Create(m_folder.Path(), kQuick).ok());
}

TEST_F(DirectoryObjectStoreTest, ObjectsOfASaveAreRecordsOfOnePack) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one, m_two}}).ok());
  EXPECT_EQ(CountFiles(File("objects")), 0);
  EXPECT_EQ(CountFiles(File("packs")), 1);
  EXPECT_EQ(ReadWhole(File("packs/00000001.pack")), kPackOfTwo);
}

TEST_F(DirectoryObjectStoreTest, MoveAppendsOneSmallRecord) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  const std::string before = State();
  ASSERT_TRUE(Move(store, {"master", Id(), m_one.id}).ok());
  const std::string after = State();
  EXPECT_EQ(after.substr(0, before.size()), before);
  EXPECT_EQ(after.size(), before.size() + 48 + 1 + 4 + 6 + 32);
}

TEST_F(DirectoryObjectStoreTest, JournalStaysSmallHoweverOftenABranchMoves) {
  DirectoryObjectStore store = Create();
  DirectoryObjectStore reader = Open();
  ASSERT_TRUE(store.Write({{m_one, m_two}}).ok());
  Id head;
  std::uintmax_t largest = 0;
  for (int number = 0; number < 1000; ++number) {
    const Id next = number % 2 == 0 ? m_one.id : m_two.id;
    ASSERT_TRUE(Move(store, {"master", head, next}).ok());
    head = next;
    largest = std::max(largest, fs::file_size(File("state")));
    if (number % 100 == 0) {
      ASSERT_EQ(reader.Heads().value(), (std::vector<Head>{{"master", head}}));
    }
  }
  EXPECT_GT(largest, 16000U);
  EXPECT_LT(largest, 18000U);
  EXPECT_EQ(reader.Heads().value(), (std::vector<Head>{{"master", head}}));
}

TEST_F(DirectoryObjectStoreTest, TornTailIsSkippedAndReplacedByTheNextWrite) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one, m_two}}).ok());
  ASSERT_TRUE(Move(store, {"master", Id(), m_one.id}).ok());
  std::ofstream(File("state"), std::ios::binary | std::ios::app) << "\nREC and no more";
  DirectoryObjectStore other = Open();
  EXPECT_EQ(other.Heads().value(), (std::vector<Head>{{"master", m_one.id}}));
  ASSERT_TRUE(Move(other, {"master", m_one.id, m_two.id}).ok());
  EXPECT_EQ(State().find("and no more"), std::string::npos);
  EXPECT_EQ(store.Heads().value(), (std::vector<Head>{{"master", m_two.id}}));
}

// A sparse file takes no room on the medium, and would take all memory.
TEST_F(DirectoryObjectStoreTest, StateOfAnySizeIsRefused) {
  { DirectoryObjectStore store = Create(); }
  fs::resize_file(File("state"), std::uintmax_t{1} << 32);
  EXPECT_EQ(ErrorOfOpen(), ErrorCode::Damaged);
}

TEST_F(DirectoryObjectStoreTest, JournalOfALaterVersionIsLeftAlone) {
  { DirectoryObjectStore store = Create(); }
  const std::string later = "TalVcs store 2\nrequires packs later\n" + State().substr(30);
  WriteWhole(File("state"), later);
  EXPECT_EQ(ErrorOfOpen(), ErrorCode::Unsupported);
  EXPECT_FALSE(DirectoryObjectStore::Create(m_folder.Path(), kQuick).ok());
  EXPECT_EQ(State(), later);
}

TEST_F(DirectoryObjectStoreTest, DamageIsFoundByAStoreThatIsOpen) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  ASSERT_TRUE(Move(store, {"master", Id(), m_one.id}).ok());
  WriteWhole(File("state"), "anything");
  EXPECT_EQ(store.Heads().error().code, ErrorCode::Damaged);
  EXPECT_EQ(Move(store, {"other", Id(), m_one.id}).error().code, ErrorCode::Damaged);
  EXPECT_EQ(store.SetValue("a", "b").error().code, ErrorCode::Damaged);
  EXPECT_EQ(State(), "anything");
}

TEST_F(DirectoryObjectStoreTest, IncompleteFilesAreNoObjects) {
  DirectoryObjectStore store = Create();
  fs::create_directories(File("objects/43"));
  WriteWhole(File("objects/43/7613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3.new"),
             "blob 3");
  EXPECT_EQ(store.Missing({{m_one.id}}).value().size(), 1U);
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  EXPECT_TRUE(store.Missing({{m_one.id}}).value().empty());
}

TEST_F(DirectoryObjectStoreTest, FilesOfTheHostStay) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  fs::create_directories(File("objects/43"));
  const std::set<std::string> names = {"notes",        "objects/readme", "objects/43/readme",
                                       "objects/zz",   "packs/notes",    "packs/0000000a.pack.old",
                                       "packs/a.pack", "packs/a-b.index"};
  for (const std::string& name : names) WriteWhole(File(name), "of the host");
  const Result<RemovedObjects> removed = store.RemoveUnmarked(
      [](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> { return std::vector<Id>(); });
  ASSERT_TRUE(removed.ok()) << Kit::Describe(removed.error());
  EXPECT_EQ(removed->count, 1U);
  for (const std::string& name : names) EXPECT_EQ(ReadWhole(File(name)), "of the host") << name;
}

TEST_F(DirectoryObjectStoreTest, ReadersOfHeadsKeepTheirObjects) {
  DirectoryObjectStore store = Create();
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  const auto keep_none = [](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
    return std::vector<Id>();
  };
  {
    DirectoryObjectStore reader = Open();
    ASSERT_TRUE(reader.Heads().ok());
    const Result<RemovedObjects> refused = store.RemoveUnmarked(keep_none);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().code, ErrorCode::Busy);
  }
  EXPECT_EQ(store.RemoveUnmarked(keep_none).value().count, 1U);
}

TEST_F(DirectoryObjectStoreTest, RemovalGivesTheLockOfAReaderBack) {
  DirectoryObjectStore store = Create();
  DirectoryObjectStore other = Open();
  const auto keep_none = [](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
    return std::vector<Id>();
  };
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.RemoveUnmarked(keep_none).ok());
  EXPECT_EQ(other.RemoveUnmarked(keep_none).error().code, ErrorCode::Busy);
}

TEST_F(DirectoryObjectStoreTest, WriterOfTheFormerClassKeepsOthersAway) {
  DirectoryObjectStore store = Create();
  DirectoryStore former = OpenFormer();
  ASSERT_TRUE(former.Lock());
  const Status status = store.Write({{m_one}});
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Busy);
}

TEST_F(DirectoryObjectStoreTest, FolderOfTheFormerFormatIsReadAsItIs) {
  Repository repository = OldState();
  SaveFormer(repository);
  const std::string before = State();
  DirectoryObjectStore store = Open();
  const std::vector<Head> heads = store.Heads().value();
  ASSERT_EQ(heads.size(), 2U);
  EXPECT_EQ(heads[0].name, "master");
  EXPECT_EQ(Ascii(heads[0].id), IdOf(repository.GetHead(Wide("master"))));
  std::size_t objects = 0;
  ASSERT_TRUE(store
                  .List([&](std::span<const Id> ids) {
                    objects += ids.size();
                    return store.Missing(ids).value().empty();
                  })
                  .ok());
  EXPECT_EQ(objects, static_cast<std::size_t>(CountFiles(File("objects"))));
  EXPECT_EQ(State(), before);
}

TEST_F(DirectoryObjectStoreTest, FirstWriteUpgradesAFolderOfTheFormerFormat) {
  Repository repository = OldState();
  SaveFormer(repository);
  DirectoryObjectStore store = Open();
  const std::vector<Head> heads = store.Heads().value();
  const int files = CountFiles(File("objects"));
  ASSERT_TRUE(store.Write({{m_one}}).ok());
  EXPECT_TRUE(State().starts_with("TalVcs store 2\n"));
  DirectoryObjectStore other = Open();
  EXPECT_EQ(other.Heads().value(), heads);
  EXPECT_EQ(CountFiles(File("objects")), files);
  EXPECT_EQ(CountFiles(File("packs")), 1);
}

TEST_F(DirectoryObjectStoreTest, FormerClassRefusesAnUpgradedFolder) {
  Repository repository = OldState();
  SaveFormer(repository);
  ASSERT_TRUE(Open().SetValue("current", "master").ok());
  const std::string upgraded = State();
  DirectoryStore former = OpenFormer();
  EXPECT_TRUE(Load(former).starts_with("damaged ")) << Load(former);
  EXPECT_NE(former.LastError().find("it was upgraded"), std::string::npos) << former.LastError();
  Repository other = NewState();
  EXPECT_FALSE(Save(other, former) && former.Commit());
  EXPECT_EQ(State(), upgraded);
}

TEST_F(DirectoryObjectStoreTest, StreamsOfTheFormerFormatBecomeValues) {
  {
    DirectoryStore former = OpenFormer();
    Stream stream = former.CreateBlobStream(Wide("settings/current"));
    BufferOf("master").AppendTo(stream, nullptr);
    stream.SeekToBegin();
    ASSERT_TRUE(former.CommitBlobStream(Wide("settings/current"), stream) && former.Commit());
  }
  DirectoryObjectStore store = Open();
  EXPECT_EQ(store.Value("settings/current").value(), "master");
  ASSERT_TRUE(store.SetValue("other", "value").ok());
  EXPECT_EQ(store.Value("settings/current").value(), "master");
}

TEST_F(DirectoryObjectStoreTest, FormerBranchesStandBelowTheRootPath) {
  Repository repository = OldState();
  DirectoryStoreOptions former{.rootPath = Wide("root"), .durable = false};
  DirectoryStore streams(m_folder.Path(), former);
  ASSERT_TRUE(Serializer(&streams, Wide("root")).Serialize(repository.GetStorage()));
  ASSERT_TRUE(streams.Commit());
  DirectoryObjectStoreOptions options = kQuick;
  options.rootPath = "root";
  DirectoryObjectStore store = DirectoryObjectStore::Open(m_folder.Path(), options).value();
  EXPECT_EQ(store.Heads().value().size(), 2U);
}

TEST_F(DirectoryObjectStoreTest, UpgradeRemovesIncompleteObjectsAlone) {
  Repository repository = OldState();
  SaveFormer(repository);
  // What a killed save of the former class leaves: one file whole, one not.
  fs::create_directories(File("objects/43"));
  fs::create_directories(File("objects/9d"));
  WriteWhole(File("objects/43/7613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3"),
             "blob 3");
  WriteWhole(File("objects/9d/500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64"),
             {"blob 3\0two", 10});
  DirectoryObjectStore store = Open();
  EXPECT_EQ(store.Missing({{m_one.id, m_two.id}}).value().size(), 2U);
  ASSERT_TRUE(store.SetValue("current", "master").ok());
  DirectoryObjectStore other = Open();
  EXPECT_EQ(other.Missing({{m_one.id, m_two.id}}).value(), std::vector<Id>{m_one.id});
}

TEST_F(DirectoryObjectStoreTest, SaveIsBusyAfterTheFormerClassHasSaved) {
  Repository before = OldState();
  Repository after = NewState();
  SaveFormer(before);
  DirectoryObjectStore store = Open();
  ASSERT_TRUE(store.Missing({{m_one.id}}).ok());
  SaveFormer(after);
  EXPECT_EQ(Move(store, {"x", Id(), m_one.id}).error().code, ErrorCode::Busy);
}

TEST_F(DirectoryObjectStoreTest, MovedFromStoreCanBeAssigned) {
  DirectoryObjectStore store = Create();
  DirectoryObjectStore taken = std::move(store);
  ASSERT_TRUE(taken.Write({{m_one}}).ok());
  store = Open();
  EXPECT_TRUE(store.Missing({{m_one.id}}).value().empty());
}

}  // namespace
}  // namespace TalVcs::Kit
