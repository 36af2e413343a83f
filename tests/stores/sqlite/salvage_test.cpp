// What a salvage of a damaged document brings into a new one.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/repair.h>
#include <kit/open/verify.h>
#include <kit/store/object_key.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>
#include <tests/support/bytes.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

namespace fs = std::filesystem;

constexpr std::size_t kPageBytes = 512;

/// Versions of a long file, which are differences from each other, beside a small history.
std::shared_ptr<MemoryObjectStore> LongerStore() {
  Repository repository = SmallHistory();
  std::string chapter = RandomBytes(3000);
  for (int version = 0; version < 20; ++version) {
    chapter.replace(static_cast<std::size_t>(version) * 50, 20,
                    "version " + std::to_string(version));
    AddCommit(repository, version % 2 == 0 ? "master" : "topic", {{"chapter", chapter}});
  }
  return StoreOf(repository);
}

class SqliteSalvages : public testing::Test {
 protected:
  void SetUp() override {
    SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
    Copy(*m_good, store).value();
    store.SetValue("current", "topic").value();
    store.Close().value();
    m_bytes = ReadWhole(m_document);
    ASSERT_EQ(m_bytes.size() % kPageBytes, 0U);
  }

  std::string PageOf(std::size_t page) const {
    return m_bytes.substr(page * kPageBytes, kPageBytes);
  }
  std::string With(std::size_t page, std::string_view content) const {
    std::string bytes = m_bytes;
    return bytes.replace(page * kPageBytes, kPageBytes, content);
  }

  /// Salvages a document of these bytes into a new one.
  SqliteSalvage SalvageOf(const std::string& bytes) {
    WriteWhole(m_document, bytes);
    fs::remove(m_target);
    const SqliteSalvage salvage =
        SqliteStore::Salvage(m_document, m_target, {.durable = false}).value();
    EXPECT_EQ(ReadWhole(m_document), bytes);
    SqliteStore rescued = Rescued();
    EXPECT_EQ(rescued.Heads().value(), salvage.heads);
    EXPECT_EQ(ObjectsOf(rescued).size(), salvage.objects);
    return salvage;
  }
  SqliteStore Rescued() const {
    return SqliteStore::Open(m_target, {.create = false, .durable = false}).value();
  }

  /// The good store has everything that the branches need. What the salvage kept stays.
  void ExpectRepaired(const SqliteSalvage& salvage) {
    SqliteStore rescued = Rescued();
    EXPECT_TRUE(Repair(rescued, *m_good).value().IsWhole());
    if (salvage.hasAllHeads) {
      EXPECT_EQ(WithoutNew(rescued.Heads().value()), m_good->Heads().value());
      EXPECT_EQ(ObjectsOf(rescued), ObjectsOf(*m_good));
    }
  }

  /// Returns the branches that the document had.
  static std::vector<Head> WithoutNew(std::vector<Head> heads) {
    std::erase_if(heads, [](const Head& head) { return head.name.starts_with("salvaged/"); });
    return heads;
  }

  /// Makes `copy` of the document while it is open with a log, as after a crash, after `change`.
  template <typename Change>
  void CopyWithLog(const fs::path& copy, const Change& change) const {
    SqliteStore store =
        SqliteStore::Open(m_document,
                          {.durable = false, .journalMode = SqliteJournalMode::WriteAheadLog})
            .value();
    change(store);
    fs::copy_file(m_document, copy);
    fs::copy_file(LogOf(m_document), LogOf(copy));
  }
  static fs::path LogOf(fs::path path) { return path += "-wal"; }

  const TemporaryFolder m_folder;
  const fs::path m_document = m_folder.Path() / "document.tal";
  const fs::path m_target = m_folder.Path() / "rescued.tal";
  const fs::path m_copy = m_folder.Path() / "copy.tal";
  const std::shared_ptr<MemoryObjectStore> m_good = LongerStore();
  std::string m_bytes;
};

TEST_F(SqliteSalvages, WholeDocumentIsCopied) {
  const SqliteSalvage salvage = SalvageOf(m_bytes);
  EXPECT_EQ(salvage.heads, m_good->Heads().value());
  EXPECT_TRUE(salvage.hasAllHeads);
  EXPECT_EQ(salvage.objects, ObjectsOf(*m_good).size());
  EXPECT_EQ(salvage.lostObjects, 0U);
  EXPECT_EQ(salvage.values, 1U);
  EXPECT_EQ(Rescued().Value("current").value(), "topic");
  SqliteStore rescued = Rescued();
  EXPECT_TRUE(Verify(rescued).value().IsWhole());
}

// Nothing but the rows themselves is needed.
TEST_F(SqliteSalvages, RowsAreFoundWithoutThePagesThatLeadToThem) {
  constexpr std::string_view kBranches("\x02\x05\x0A", 3);
  std::string bytes = m_bytes.replace(0, kPageBytes, kPageBytes, '\xFF');
  std::size_t destroyed = 0;
  for (std::size_t page = 1; page < bytes.size() / kPageBytes; ++page) {
    if (kBranches.find(bytes[page * kPageBytes]) == std::string_view::npos) continue;
    bytes.replace(page * kPageBytes, kPageBytes, kPageBytes, '\0');
    ++destroyed;
  }
  EXPECT_GT(destroyed, 3U);
  WriteWhole(m_document, bytes);
  EXPECT_FALSE(SqliteStore::Open(m_document, {.create = false}).ok());
  const SqliteSalvage salvage = SalvageOf(bytes);
  SqliteStore rescued = Rescued();
  EXPECT_EQ(ObjectsOf(rescued), ObjectsOf(*m_good));
  EXPECT_EQ(salvage.lostObjects, 0U);
  // The pages of branches were among those.
  EXPECT_FALSE(salvage.hasAllHeads);
  std::set<std::string> heads;
  for (const Head& head : m_good->Heads().value()) heads.insert(Ascii(head.id));
  std::set<std::string> tips;
  for (const Head& head : salvage.heads) {
    EXPECT_TRUE(head.name.starts_with("salvaged/"));
    tips.insert(Ascii(head.id));
  }
  EXPECT_EQ(tips, heads);
}

TEST_F(SqliteSalvages, AnyPageMayBeLost) {
  const std::size_t all = ObjectsOf(*m_good).size();
  std::size_t without_heads = 0;
  std::size_t refused = 0;
  for (std::size_t page = 0; page < m_bytes.size() / kPageBytes; ++page) {
    SCOPED_TRACE(page);
    const std::string other = PageOf(page + 1 < m_bytes.size() / kPageBytes ? page + 1 : page - 1);
    const std::string noise = RandomBytes(kPageBytes, static_cast<unsigned>(page));
    const SqliteSalvage salvage = SalvageOf(With(page, page % 2 == 0 ? noise : other));
    const bool opens = SqliteStore::Open(m_document, {.create = false}).ok();
    refused += opens ? 0 : 1;
    without_heads += salvage.hasAllHeads ? 0 : 1;
    // A page has the rows of few objects. Versions that are differences from them are lost as well.
    EXPECT_GE(salvage.objects + 30, all);
    ExpectRepaired(salvage);
  }
  // The first page, the pages of branches and of the sum of branches, and few others.
  EXPECT_GT(refused, 0U);
  EXPECT_GT(without_heads, 0U);
  EXPECT_LT(without_heads, 10U);
}

TEST_F(SqliteSalvages, AnyEndMayBeMissing) {
  for (std::size_t size = 0; size < m_bytes.size(); size += 3000) {
    SCOPED_TRACE(size);
    const SqliteSalvage salvage = SalvageOf(m_bytes.substr(0, size));
    ExpectRepaired(salvage);
  }
}

TEST_F(SqliteSalvages, BytesThatAreNoDocumentMakeAnEmptyOne) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    std::string bytes = RandomBytes(20000, seed);
    // Pages with records of any lengths at any places.
    for (std::size_t at = 0; at < bytes.size(); at += kPageBytes)
      bytes[at] = "\x02\x0A\x0D"[seed % 3];
    const SqliteSalvage salvage = SalvageOf(bytes);
    EXPECT_EQ(salvage.objects, 0U);
    EXPECT_TRUE(salvage.heads.empty());
    EXPECT_EQ(salvage.values, 0U);
  }
}

TEST_F(SqliteSalvages, ObjectInPiecesIsFound) {
  const StoredObject large = ObjectOf("blob 9000000" + std::string(1, '\0') + RandomBytes(9000000));
  fs::remove(m_document);
  SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
  ASSERT_TRUE(Testing::Save(store, {large}, {{"large", Id(), large.id}}).ok());
  ASSERT_TRUE(store.Close().ok());
  std::string bytes = ReadWhole(m_document);
  SalvageOf(bytes);
  SqliteStore rescued = Rescued();
  EXPECT_EQ(DescribeObject(rescued, large.id), "9000013 bytes");
  // A byte in the middle of a piece.
  bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
  const SqliteSalvage salvage = SalvageOf(bytes);
  EXPECT_EQ(salvage.objects, 0U);
  EXPECT_EQ(salvage.lostObjects, 1U);
}

// As after a crash: the file alone has an older state.
TEST_F(SqliteSalvages, ChangesInALogAreFound) {
  CopyWithLog(m_copy, [](SqliteStore& store) {
    ASSERT_TRUE(Testing::Save(store, {kNew}, {{"new", Id(), kNew.id}}).ok());
  });
  const SqliteSalvage salvage = SqliteStore::Salvage(m_copy, m_target, {.durable = false}).value();
  EXPECT_TRUE(salvage.hasAllHeads);
  SqliteStore rescued = Rescued();
  EXPECT_EQ(DescribeObject(rescued, kNew.id), "of the new state");
  EXPECT_EQ(rescued.Heads().value().size(), m_good->Heads().value().size() + 1);
}

// The pages of the file that they replace have other ones.
TEST_F(SqliteSalvages, BranchesAndValuesOfALogCount) {
  const OpenedRepository repository = Open(m_good).value();
  const cow_ptr<Commit> master = repository->GetHead(Wide("master"));
  const Id other = repository->GetHead(Wide("other"))->GetId();
  std::vector<Head> after;
  CopyWithLog(m_copy, [&](SqliteStore& store) {
    store.SetValue("current", "master").value();
    // One moves back to an older commit, one is removed.
    const std::vector<HeadMove> moves = {{"master", master->GetId(), master->GetParent()->GetId()},
                                         {"other", other, Id()}};
    ASSERT_TRUE(store.MoveHeads(moves).ok());
    after = store.Heads().value();
  });
  const SqliteSalvage salvage = SqliteStore::Salvage(m_copy, m_target, {.durable = false}).value();
  EXPECT_TRUE(salvage.hasAllHeads);
  EXPECT_EQ(WithoutNew(salvage.heads), after);
  EXPECT_EQ(Rescued().Value("current").value(), "master");
}

// The older state that is left has a checksum that fits.
TEST_F(SqliteSalvages, CommitsInADamagedLogGetNames) {
  Repository repository = NewRepository();
  const Id newest = AddCommit(repository, "newest", {{"file", "of the newest"}})->GetId();
  const std::shared_ptr<MemoryObjectStore> newer = StoreOf(repository);
  std::vector<StoredObject> objects;
  newer
      ->Read(ObjectsOf(*newer),
             [&](const Id& id, Result<Buffer> packed) {
               objects.push_back({id, *std::move(packed), Id()});
             })
      .value();
  CopyWithLog(m_copy, [&](SqliteStore& store) {
    store.SetValue("current", "before").value();
    ASSERT_TRUE(Testing::Save(store, objects, {{"newest", Id(), newest}}).ok());
  });
  std::string log = ReadWhole(LogOf(m_copy));
  // Bytes of the last page, so that the transaction has no end.
  log[log.size() - 1] = static_cast<char>(log[log.size() - 1] ^ 1);
  WriteWhole(LogOf(m_copy), log);
  const SqliteSalvage salvage = SqliteStore::Salvage(m_copy, m_target, {.durable = false}).value();
  EXPECT_EQ(WithoutNew(salvage.heads), m_good->Heads().value());
  EXPECT_TRUE(std::any_of(salvage.heads.begin(), salvage.heads.end(),
                          [&](const Head& head) { return head.id == newest; }));
}

TEST_F(SqliteSalvages, CommitsBeforeALostHeadGetANewName) {
  const OpenedRepository repository = Open(m_good).value();
  const cow_ptr<Commit> head = repository->GetHead(Wide("master"));
  const ObjectKey key = *KeyOf(head->GetId());
  const std::string id(reinterpret_cast<const char*>(key.data()), key.size());
  // The row of the object has the number of its size after the id, the row of the branch nothing.
  const std::string before = std::string("master") + id;
  std::size_t changed = 0;
  std::string bytes = m_bytes;
  for (std::size_t at = bytes.find(id); at != std::string::npos; at = bytes.find(id, at + 1)) {
    if (bytes.compare(at - 6, before.size(), before) == 0) continue;
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    ++changed;
  }
  ASSERT_EQ(changed, 1U);
  const SqliteSalvage salvage = SalvageOf(bytes);
  EXPECT_TRUE(salvage.hasAllHeads);
  EXPECT_EQ(salvage.lostObjects, 1U);
  EXPECT_EQ(WithoutNew(salvage.heads), m_good->Heads().value());
  ASSERT_EQ(salvage.heads.size(), m_good->Heads().value().size() + 1);
  EXPECT_TRUE(std::any_of(salvage.heads.begin(), salvage.heads.end(), [&](const Head& found) {
    return found.name == "salvaged/1" && found.id == head->GetParent()->GetId();
  }));
}

TEST_F(SqliteSalvages, ValuesOfFreePagesStayRemoved) {
  {
    SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
    for (int number = 0; number < 100; ++number) {
      store.SetValue("value " + std::to_string(number), "short").value();
    }
    ASSERT_TRUE(store.Close().ok());
    RawFile(m_document)
        .Execute("PRAGMA secure_delete = OFF; DELETE FROM host_values WHERE name LIKE 'value%'");
  }
  const std::string bytes = ReadWhole(m_document);
  ASSERT_NE(bytes.find("value 50short"), std::string::npos);
  const SqliteSalvage salvage = SalvageOf(bytes);
  EXPECT_EQ(salvage.values, 1U);
  EXPECT_EQ(salvage.heads, m_good->Heads().value());
}

// SQLite gives the number of a row that was removed to the next one.
TEST_F(SqliteSalvages, PiecesOfARemovedObjectHideNone) {
  const StoredObject old = ObjectOf("blob 9000000" + std::string(1, '\0') + RandomBytes(9000000));
  const StoredObject large =
      ObjectOf("blob 9000000" + std::string(1, '\0') + RandomBytes(9000000, 2));
  fs::remove(m_document);
  {
    SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
    ASSERT_TRUE(Testing::Save(store, {old}, {{"old", Id(), old.id}}).ok());
    ASSERT_TRUE(store.Close().ok());
  }
  const std::string pieces = ReadWhole(m_document);
  CopyWithLog(m_copy, [&](SqliteStore& store) {
    ASSERT_TRUE(store.MoveHeads(std::vector<HeadMove>{{"old", old.id, Id()}}).ok());
    ASSERT_TRUE(CleanUp(store).ok());
    ASSERT_TRUE(Testing::Save(store, {large}, {{"large", Id(), large.id}}).ok());
  });
  const SqliteSalvage salvage = SqliteStore::Salvage(m_copy, m_target, {.durable = false}).value();
  EXPECT_TRUE(salvage.hasAllHeads);
  SqliteStore rescued = Rescued();
  EXPECT_EQ(DescribeObject(rescued, large.id), "9000013 bytes");
}

TEST_F(SqliteSalvages, CancelledOneLeavesNothing) {
  int calls = 0;
  const Progress count = [&](const ProgressStep& /*step*/) { return ++calls > 0; };
  ASSERT_TRUE(SqliteStore::Salvage(m_document, m_target, {.durable = false}, count).ok());
  ASSERT_GE(calls, 4);
  for (int last = calls; last >= 1; --last) {
    fs::remove(m_target);
    int left = last;
    const Progress cancel = [&](const ProgressStep& /*step*/) { return --left > 0; };
    const auto cancelled = SqliteStore::Salvage(m_document, m_target, {.durable = false}, cancel);
    // At most so many calls come, the faster the machine, the fewer.
    if (cancelled.ok()) continue;
    EXPECT_EQ(cancelled.error().code, ErrorCode::Cancelled);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.Path()), fs::directory_iterator()), 1);
  }
}

// A file without the first page doesn't say how large its pages are.
TEST_F(SqliteSalvages, SizeOfPagesIsFoundInALargeFile) {
  const StoredObject first = ObjectOf(RandomBytes(1500000));
  std::vector<StoredObject> objects;
  for (unsigned number = 0; number < 1500; ++number) {
    objects.push_back(ObjectOf(RandomBytes(400, number)));
  }
  SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
  ASSERT_TRUE(Testing::Save(store, {first}, {}).ok());
  ASSERT_TRUE(Testing::Save(store, objects, {{"last", Id(), objects.back().id}}).ok());
  ASSERT_TRUE(store.Close().ok());
  const std::string bytes = ReadWhole(m_document).replace(0, kPageBytes, kPageBytes, '\xFF');
  ASSERT_GT(bytes.size(), std::size_t{2} << 20);
  const SqliteSalvage salvage = SalvageOf(bytes);
  EXPECT_EQ(salvage.objects, ObjectsOf(*m_good).size() + objects.size() + 1);
  EXPECT_EQ(salvage.lostObjects, 0U);
}

// The size of the pages, the bytes that each leaves free at its end, and where free pages begin.
TEST_F(SqliteSalvages, DamagedHeaderOfTheFileIsNotBelieved) {
  for (const auto& [place, bytes] : {std::pair<std::size_t, std::string>{20, "\x08"},
                                     {20, "\x40"},
                                     {16, "\x04"},
                                     {16, std::string("\0\1", 2)},
                                     {32, std::string("\0\0\0\5", 4)},
                                     {36, std::string("\0\0\0\5", 4)}}) {
    SCOPED_TRACE(place);
    std::string damaged = m_bytes;
    damaged.replace(place, bytes.size(), bytes);
    const SqliteSalvage salvage = SalvageOf(damaged);
    EXPECT_EQ(salvage.objects, ObjectsOf(*m_good).size());
    EXPECT_EQ(salvage.heads, m_good->Heads().value());
    EXPECT_TRUE(salvage.hasAllHeads);
  }
}

}  // namespace
}  // namespace TalVcs::Kit
