// What a zip store does beyond what every object store does.

#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <kit/open/repair.h>
#include <kit/text.h>
#include <stores/zip/zip_store.h>
#include <tests/kit/open/clean_up_beside.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/document_states.h>
#include <tests/kit/store/failing_memory.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/child_process.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;
namespace fs = std::filesystem;

class ZipFile : public testing::Test {
 protected:
  Result<ZipStore> TryOpen(ZipOptions options = {}) {
    options.busyTimeout = std::chrono::milliseconds(20);
    options.durable = false;
    return ZipStore::Open(m_path, options);
  }
  ZipStore Open(const ZipOptions& options = {}) { return TryOpen(options).value(); }
  void SaveDocument() {
    ZipStore store = Open();
    SaveOldState(store).value();
  }
  std::string State() {
    ZipStore store = Open({.create = false});
    return DescribeStore(store);
  }
  void ExpectFails(ErrorCode code, const std::string& reason, const ZipOptions& options = {}) {
    const Result<ZipStore> store = TryOpen(options);
    ASSERT_FALSE(store.ok());
    EXPECT_STREQ(ToString(store.error().code), ToString(code)) << Describe(store.error());
    EXPECT_NE(store.error().message.find(reason), std::string::npos) << store.error().message;
  }

  const TemporaryFolder m_folder;
  fs::path m_path = m_folder.Path() / "document.zip";
};

TEST_F(ZipFile, MissingFileBecomesAnEmptyDocument) {
  EXPECT_EQ(DescribeStore(*std::make_unique<ZipStore>(Open())), "");
  EXPECT_GT(fs::file_size(m_path), 22u);
  EXPECT_EQ(State(), "");
}

TEST_F(ZipFile, MissingFileIsNotFoundUnlessItIsToBeMade) {
  ExpectFails(ErrorCode::NotFound, "there is no such file", {.create = false});
  ExpectFails(ErrorCode::NotFound, "there is no such file", {.readOnly = true});
  EXPECT_FALSE(fs::exists(m_path));
  m_path = m_folder.Path() / "missing" / "document.zip";
  ExpectFails(ErrorCode::NotFound, "there is no such file");
}

TEST_F(ZipFile, EmptyFileBecomesADocumentIfItIsToBeMade) {
  WriteWhole(m_path, "");
  ExpectFails(ErrorCode::Damaged, "it isn't a document", {.create = false});
  SaveDocument();
  EXPECT_EQ(State(), kOldState);
}

TEST_F(ZipFile, FileOfAnotherKindIsRefusedAndUnchanged) {
  const std::string text = "A letter, not a document." + std::string(2000, '\n');
  WriteWhole(m_path, text);
  ExpectFails(ErrorCode::Damaged, "it isn't a zip archive");
  EXPECT_EQ(ReadWhole(m_path), text);
  fs::remove(m_path);
  fs::create_directory(m_path);
  ExpectFails(ErrorCode::Unsupported, "it is not a file");
}

TEST_F(ZipFile, FileThatIsOnlyReadIsNotChanged) {
  SaveDocument();
  ZipStore store = Open({.readOnly = true});
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_EQ(CodeOf(store.Write(std::vector<StoredObject>{kNew})), "Denied");
  EXPECT_EQ(CodeOf(store.MoveHeads(std::vector<HeadMove>{{"master", kOld.id, Id()}})), "Denied");
  EXPECT_EQ(CodeOf(store.SetValue("a", "b")), "Denied");
  EXPECT_EQ(CodeOf(store.Replace(std::vector<StoredObject>{kNew})), "Denied");
  ZipStore small = Open({.readOnly = true, .mostObjectBytes = 2000});
  const std::string large(2001, 'x');
  EXPECT_EQ(CodeOf(small.Write(std::vector<StoredObject>{ObjectOf(large)})), "Denied");
  EXPECT_EQ(CodeOf(small.SetValue("a", large)), "Denied");
  EXPECT_EQ(CodeOf(small.Replace(std::vector<StoredObject>{ObjectOf(large)})), "Denied");
  EXPECT_EQ(State(), kOldState);
}

TEST_F(ZipFile, ClosedStoreIsUnavailable) {
  ZipStore store = Open();
  store.Close().value();
  store.Close().value();
  EXPECT_EQ(CodeOf(store.Heads()), "Unavailable");
  EXPECT_EQ(CodeOf(store.Write(std::vector<StoredObject>{kNew})), "Unavailable");
}

TEST_F(ZipFile, FailedSaveLeavesItsObjectsToTheNextOne) {
  SaveDocument();
  ZipStore store = Open();
  const fs::path blocked = m_path.string() + ".new";
  fs::create_directory(blocked);
  const Status failed = SaveNewState(store);
  ASSERT_FALSE(failed.ok());
  EXPECT_EQ(failed.error().unchanged, "the previous version is unchanged");
  EXPECT_EQ(State(), kOldState);
  fs::remove(blocked);
  const std::vector<HeadMove> moves = {
      {"master", kOld.id, kNew.id}, {"large", Id(), kLarge.id}, {"topic", kShared.id, Id()}};
  store.MoveHeads(moves).value();
  EXPECT_EQ(State(), kNewState);
}

TEST_F(ZipFile, EqualContentMakesEqualBytesInWhateverOrderItCame) {
  const std::vector<StoredObject> objects = {kShared, kOld, kNew, kLarge};
  std::vector<std::string> archives;
  for (const bool reversed : {false, true}) {
    fs::remove(m_path);
    std::vector<StoredObject> order = objects;
    if (reversed) std::reverse(order.begin(), order.end());
    {
      ZipStore store = Open({.bufferSizeBytes = reversed ? 0u : 1000000u});
      for (const StoredObject& object : order) {
        store.Write(std::vector<StoredObject>{object}).value();
        if (reversed) store.MoveHeads({}).value();
      }
      store.SetValue(reversed ? "b" : "a", "1").value();
      store.SetValue(reversed ? "a" : "b", "1").value();
      store.MoveHeads(std::vector<HeadMove>{{"x", Id(), kOld.id}}).value();
      store.MoveHeads(std::vector<HeadMove>{{"x", kOld.id, Id()}, {"y", Id(), kNew.id}}).value();
    }
    archives.push_back(ReadWhole(m_path));
  }
  EXPECT_EQ(archives[0], archives[1]);
}

TEST_F(ZipFile, NothingIsWrittenWhereNothingChanges) {
  SaveDocument();
  ZipStore store = Open();
  const fs::file_time_type before = fs::last_write_time(m_path);
  const std::vector<HeadMove> same = {{"master", kOld.id, kOld.id}};
  fs::permissions(m_folder.Path(), fs::perms::owner_read | fs::perms::owner_exec);
  Testing::Save(store, {kShared, kOld}, same).value();
  store.SetValue("none", std::nullopt).value();
  fs::permissions(m_folder.Path(), fs::perms::owner_all);
  EXPECT_EQ(fs::last_write_time(m_path), before);
}

TEST_F(ZipFile, SymbolicLinkAndPermissionsStay) {
  SaveDocument();
  fs::permissions(m_path, fs::perms::owner_read | fs::perms::owner_write);
  const fs::path file = m_path;
  m_path = m_folder.Path() / "link.zip";
  fs::create_symlink("document.zip", m_path);
  {
    ZipStore store = Open();
    SaveNewState(store).value();
  }
  EXPECT_TRUE(fs::is_symlink(m_path));
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  m_path = file;
  EXPECT_EQ(State(), kNewState);
}

// A save replaced a file that nobody may write, because the folder allowed it.
TEST_F(ZipFile, FileThatMayOnlyBeReadIsNotReplaced) {
  SaveDocument();
  const std::string before = ReadWhole(m_path);
  fs::permissions(m_path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  fs::permissions(m_folder.Path(), fs::perms::all);
  const int code = InChild([&] {
    if (!BecomeOrdinaryUser()) return 0;
    ZipStore store = Open();
    EXPECT_EQ(DescribeStore(store), kOldState);
    EXPECT_TRUE(store.Write(std::vector<StoredObject>{kNew}).ok());
    EXPECT_EQ(CodeOf(store.Close()), "Denied");
    EXPECT_EQ(SaveNewState(store).error().code, ErrorCode::Denied);
    EXPECT_EQ(store.SetValue("current", "x").error().code, ErrorCode::Denied);
    return HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(ReadWhole(m_path) == before);
}

TEST_F(ZipFile, TextsOfAnErrorAreUtf8) {
  m_path = m_folder.Path() / "\xff" / "document.zip";
  const Result<ZipStore> store = TryOpen();
  ASSERT_FALSE(store.ok());
  EXPECT_TRUE(ToWideExactly(store.error().message)) << store.error().message;
}

// The first archive took the place of the link.
TEST_F(ZipFile, DocumentIsMadeWhereADanglingLinkLeads) {
  const fs::path file = m_folder.Path() / "away" / "document.zip";
  fs::create_directory(file.parent_path());
  fs::create_symlink("away/document.zip", m_path);
  SaveDocument();
  EXPECT_TRUE(fs::is_symlink(m_path));
  EXPECT_EQ(State(), kOldState);
  m_path = file;
  EXPECT_EQ(State(), kOldState);
  m_path = m_folder.Path() / "nowhere.zip";
  fs::create_symlink("missing/document.zip", m_path);
  EXPECT_EQ(ZipStore::Open(m_path).error().code, ErrorCode::NotFound);
  EXPECT_TRUE(fs::is_symlink(m_path));
}

// The destructor writes what is left, and ended the program.
TEST(ZipMemory, SaveThatRunsOutOfItLeavesTheDocument) {
  SaveWhileMemoryRunsOut(
      5, [](const fs::path& path) { return ZipStore::Open(path, {.durable = false}); });
}

TEST_F(ZipFile, ReaderKeepsItsArchiveUntilItLooksAgain) {
  SaveDocument();
  ZipStore reader = Open();
  EXPECT_EQ(DescribeStore(reader), kOldState);
  ZipStore writer = Open();
  SaveNewState(writer).value();
  writer
      .RemoveUnmarked([](std::span<const Head>) -> Result<std::vector<Id>> {
        return std::vector<Id>{kNew.id, kLarge.id};
      })
      .value();
  EXPECT_EQ(DescribeObject(reader, kOld.id), "of the old state");
  EXPECT_EQ(DescribeStore(reader), kNewState);
  EXPECT_EQ(DescribeObject(reader, kOld.id), "NotFound");
}

TEST_F(ZipFile, FileThatAnotherProgramHasReplacedIsNoticed) {
  SaveDocument();
  ZipStore store = Open();
  EXPECT_EQ(DescribeStore(store), kOldState);
  const fs::path document = m_path;
  m_path = m_folder.Path() / "other.zip";
  {
    ZipStore other = Open();
    Testing::Save(other, {kNew}, {{"master", Id(), kNew.id}}).value();
  }
  fs::rename(m_path, document);
  EXPECT_EQ(CodeOf(SaveNewState(store)), "Conflict");
  EXPECT_EQ(DescribeStore(store), "master: of the new state\n");
  fs::remove(document);
  EXPECT_EQ(CodeOf(store.Heads()), "NotFound");
  EXPECT_EQ(CodeOf(SaveNewState(store)), "NotFound");
}

TEST_F(ZipFile, ObjectLargerThanTheOptionsAllowIsNotRead) {
  SaveDocument();
  {
    ZipStore store = Open();
    SaveNewState(store).value();
  }
  ZipStore store = Open({.mostObjectBytes = 19999});
  EXPECT_EQ(DescribeObject(store, kLarge.id), "Unsupported");
  EXPECT_EQ(DescribeObject(store, kNew.id), "of the new state");
}

// It was saved, and the next program with the same options could not read it.
TEST_F(ZipFile, ObjectLargerThanTheOptionsAllowIsNotWritten) {
  SaveDocument();
  {
    ZipStore store = Open({.mostObjectBytes = 19999});
    EXPECT_EQ(CodeOf(store.Write({&kLarge, 1})), "Unsupported");
    EXPECT_EQ(CodeOf(store.Replace({&kLarge, 1})), "Unsupported");
    EXPECT_EQ(CodeOf(store.SetValue("n", std::string(20000, 'x'))), "Unsupported");
    EXPECT_EQ(CodeOf(store.SetValue("n", std::string(19999, 'x'))), "ok");
  }
  EXPECT_EQ(Open({.mostObjectBytes = 19999}).Value("n").value()->size(), 19999u);
  EXPECT_EQ(State(), kOldState);
}

TEST_F(ZipFile, NameThatIsTooLongForTheFormatIsRefused) {
  ZipStore store = Open();
  EXPECT_EQ(CodeOf(store.SetValue(std::string(65536, 'n'), "x")), "Unsupported");
  EXPECT_EQ(CodeOf(store.SetValue("n", "x")), "ok");
}

// An entry that is stored has the bytes of the object in the file, a deflated one hasn't.
TEST_F(ZipFile, ObjectIsDeflatedWhereThatPays) {
  std::string noise = "blob 3000\0";
  std::uint32_t state = 1;
  while (noise.size() < 3000)
    noise += static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  const std::string words = "to be or not to be, that is the question, to be or not to be, to be";
  ZipStore store = Open();
  store.Write(std::vector<StoredObject>{ObjectOf(noise), ObjectOf(words), kOld}).value();
  store.MoveHeads({}).value();
  const std::string bytes = ReadWhole(m_path);
  EXPECT_NE(bytes.find(noise), bytes.npos);
  EXPECT_NE(bytes.find("of the old state"), bytes.npos);
  EXPECT_EQ(bytes.find(words), bytes.npos);
  EXPECT_EQ(DescribeObject(store, ObjectOf(words).id), words);
}

TEST_F(ZipFile, WrittenObjectsAreReadBeforeTheyAreInTheFile) {
  ZipStore store = Open({.bufferSizeBytes = 30});
  store.Write(std::vector<StoredObject>{kOld, kNew, kLarge}).value();
  for (const StoredObject& object : {kOld, kNew, kLarge}) {
    EXPECT_EQ(store.Sizes({{object.id}}).value()[0], object.packed.GetSize());
    EXPECT_NE(DescribeObject(store, object.id), "NotFound");
  }
  EXPECT_EQ(ObjectsOf(store).size(), 3u);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
  EXPECT_EQ(ObjectsOf(*std::make_unique<ZipStore>(Open())).size(), 0u);
}

TEST_F(ZipFile, DocumentIsSavedAsAnArchiveAndOpenedFromIt) {
  Repository repository = SmallHistory();
  const auto memory = StoreOf(repository);
  {
    ZipStore store = Open();
    Copy(*memory, store, {.readBack = true}).value();
  }
  auto store = std::make_shared<ZipStore>(Open());
  EXPECT_EQ(ObjectsOf(*store), ObjectsOf(*memory));
  OpenedRepository opened = Kit::Open(store).value();
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(repository));
  AddCommit(opened.GetRepository(), "topic", {{"a/b/c", "next"}});
  EXPECT_EQ(Kit::Save(opened).value().writtenObjects, 5u);
  MemoryObjectStore back;
  Copy(*std::make_unique<ZipStore>(Open()), back).value();
  EXPECT_TRUE(Verify(back).value().IsWhole());
  EXPECT_EQ(HeadsOf(back), HeadsOf(*store));
}

TEST_F(ZipFile, EachDamagedObjectIsRepaired) {
  const auto good = SmallStore();
  ZipStore store = Open();
  Copy(*good, store).value();
  const std::string before = ReadWhole(m_path);
  for (const Id& id : ObjectsOf(*good)) {
    store.Replace(std::vector<StoredObject>{{id, BufferOf("wrong")}}).value();
    EXPECT_EQ(Verify(store).value().damages.at(0).id, id);
    const RepairReport report = Repair(store, *good).value();
    EXPECT_EQ(report.repaired.at(0).id, id);
    EXPECT_TRUE(report.IsWhole());
    EXPECT_EQ(ReadWhole(m_path), before);
  }
}

TEST_F(ZipFile, CleanUpDisturbsNeitherReadersNorAWriter) {
  CleanUpBeside([this] {
    return std::make_shared<ZipStore>(ZipStore::Open(m_path, {.durable = false}).value());
  }).Run(20);
}

}  // namespace
}  // namespace TalVcs::Kit
