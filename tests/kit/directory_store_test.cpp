#include <kit/internal/store_access.h>
#include <tests/kit/directory_store_fixture.h>
#include <tests/kit/faulty_file_system.h>

namespace TalVcs::Kit {
namespace {

// The file as an independent program writes it: two objects, one branch.
TEST_F(DirectoryStoreTest, StateFileHasItsFormat) {
  DirectoryStore store = Open();
  const std::string second(64, '2');
  const std::string first(64, '1');
  const PathBuilder paths{WideString()};
  ASSERT_TRUE(store.CommitBlobStream(paths.GetObjectW(Wide(second)), StreamOf("x")));
  ASSERT_TRUE(store.CommitBlobStream(paths.GetObjectW(Wide(first)), StreamOf("y")));
  ASSERT_TRUE(store.CommitBlobStream(paths.GetBranch(Wide("a/b")), StreamOf("abc")));
  ASSERT_TRUE(store.Commit());
  const std::string keys = std::string(32, '\x11') + std::string(32, '\x22');
  EXPECT_EQ(ReadWhole(File("state")),
            "TalVcs store 1\n2 objects\n" + keys + "1 streams\n20 3\n/.vcs/refs/heads/a/babc" +
                "615ba71d2875d8d81b55969f5cd3e01da131ee8470c04c9d83479c159929674d\n");
  EXPECT_EQ(ReadWhole(File("objects") / "11" / std::string(62, '1')), "y");
}

TEST_F(DirectoryStoreTest, ReadersSeeTheOldStateUntilCommit) {
  DirectoryStore writer = Open();
  SaveAndCommit(writer, m_old);
  ASSERT_TRUE(Save(m_new, writer));
  DirectoryStore reader = Open();
  EXPECT_EQ(Load(reader), Describe(m_old));
  EXPECT_EQ(Load(writer), Describe(m_old));
  ASSERT_TRUE(writer.Commit());
  EXPECT_EQ(Load(reader), Describe(m_new));
  EXPECT_EQ(Load(writer), Describe(m_new));
}

TEST_F(DirectoryStoreTest, LoadThatBeganKeepsItsStateAndObjects) {
  DirectoryStore writer = Open();
  SaveAndCommit(writer, m_old);
  DirectoryStore reader = Open();
  const std::vector<WideString> names = reader.ListBlobs(Wide("/.vcs/refs/heads"));
  ASSERT_EQ(Ascii(names), (std::vector<std::string>{"master", "old"}));
  SaveAndCommit(writer, m_new);
  const PathBuilder paths{WideString()};
  const cow_ptr<Commit> head = m_old.GetHead(Wide("old"));
  EXPECT_TRUE(reader.OpenBlob(paths.GetBranch(Wide("old"))));
  EXPECT_TRUE(reader.OpenBlob(paths.GetObjectW(head->GetId())));
  EXPECT_FALSE(reader.OpenBlob(paths.GetBranch(Wide("new"))));
  EXPECT_TRUE(reader.FindDamage().empty());
}

TEST_F(DirectoryStoreTest, RemovesUnusedObjectsWhenNobodyReads) {
  DirectoryStore writer = Open();
  SaveAndCommit(writer, m_old);
  {
    DirectoryStore reader = Open();
    EXPECT_EQ(Load(reader), Describe(m_old));
    SaveAndCommit(writer, m_new);
    EXPECT_TRUE(fs::exists(ObjectFile(*m_old.GetHead(Wide("old")))));
  }
  SaveAndCommit(writer, m_new);
  EXPECT_FALSE(fs::exists(ObjectFile(*m_old.GetHead(Wide("old")))));
  EXPECT_EQ(ObjectFiles(),
            static_cast<int>(m_new.GetCommitCount() + m_new.GetTreeCount() + m_new.GetBlobCount()));
  EXPECT_EQ(Load(writer), Describe(m_new));
}

TEST_F(DirectoryStoreTest, SaveAfterOneCommitWritesOnlyItsObjects) {
  auto files = std::make_shared<FaultyFileSystem>();
  DirectoryStore store = StoreAccess::Make(m_folder.Path(), NotDurable(), files);
  SaveAndCommit(store, m_new);
  CommitFile(m_new, Wide("master"), "one/more", "file");
  files->Restart();
  SaveAndCommit(store, m_new);
  // A commit, two trees and a blob; and the state.
  int written = 0;
  for (const std::string& call : files->Log()) {
    // A folder that is missing makes one attempt in vain.
    if (call.starts_with("CreateFile ")) ++written;
    if (call.starts_with("MakeFolder ") && call.size() == 13) --written;
  }
  EXPECT_EQ(written, 5) << testing::PrintToString(files->Log());
}

TEST_F(DirectoryStoreTest, AbandonedTransactionLeavesNoTrace) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const int before = ObjectFiles();
  ASSERT_TRUE(Save(m_new, store));
  EXPECT_GT(ObjectFiles(), before);
  store.Abandon();
  EXPECT_EQ(ObjectFiles(), before);
  EXPECT_TRUE(store.Commit());
  EXPECT_EQ(Load(store), Describe(m_old));
}

TEST_F(DirectoryStoreTest, EndOfTheStoreObjectAbandons) {
  {
    DirectoryStore store = Open();
    SaveAndCommit(store, m_old);
    ASSERT_TRUE(Save(m_new, store));
  }
  DirectoryStore store = Open();
  EXPECT_EQ(Load(store), Describe(m_old));
}

TEST_F(DirectoryStoreTest, ErasedStoreIsEmpty) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  Serializer(&store, WideString()).CleanUpStorage();
  EXPECT_EQ(Load(store), Describe(m_old));
  ASSERT_TRUE(store.Commit());
  EXPECT_EQ(Load(store), "0 commits, 0 trees, 0 blobs");
  EXPECT_EQ(ObjectFiles(), 0);
}

TEST_F(DirectoryStoreTest, FilesOfTheHostStay) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  WriteWhole(File("settings"), "mine");
  WriteWhole(File("objects") / "notes", "mine");
  const fs::path beside = ObjectFile(*m_old.GetHead(Wide("old"))).parent_path() / "notes";
  WriteWhole(beside, "mine");
  SaveAndCommit(store, m_new);
  EXPECT_EQ(ReadWhole(File("settings")), "mine");
  EXPECT_EQ(ReadWhole(File("objects") / "notes"), "mine");
  EXPECT_EQ(ReadWhole(beside), "mine");
}

TEST_F(DirectoryStoreTest, OptionsSetTheRootPath) {
  DirectoryStoreOptions options = NotDurable();
  options.rootPath = Wide("doc");
  DirectoryStore store(m_folder.Path(), options);
  ASSERT_TRUE(Serializer(&store, Wide("doc")).Serialize(m_old.GetStorage()));
  ASSERT_TRUE(store.Commit());
  EXPECT_GT(ObjectFiles(), 0);
  EXPECT_EQ(Load(store, Wide("doc")), Describe(m_old));
}

TEST_F(DirectoryStoreTest, OtherRootPathsWorkToo) {
  DirectoryStore store = Open();
  ASSERT_TRUE(Serializer(&store, Wide("doc")).Serialize(m_old.GetStorage()));
  ASSERT_TRUE(store.Commit());
  EXPECT_EQ(Load(store, Wide("doc")), Describe(m_old));
}

TEST_F(DirectoryStoreTest, SecondWriterIsRefusedUntilTheFirstEnds) {
  DirectoryStore first = Open();
  DirectoryStore second = Open();
  ASSERT_TRUE(Save(m_old, first));
  EXPECT_FALSE(Save(m_new, second));
  EXPECT_NE(second.LastError().find("another writer"), std::string::npos) << second.LastError();
  EXPECT_FALSE(second.Commit());
  ASSERT_TRUE(first.Commit());
  SaveAndCommit(second, m_new);
  DirectoryStore reader = Open();
  EXPECT_EQ(Load(reader), Describe(m_new));
}

// Otherwise the rest of a save that began while another wrote would be mixed with the other's
// state.
TEST_F(DirectoryStoreTest, RefusedSaveStaysRefusedWhenTheOtherEnds) {
  DirectoryStore first = Open();
  DirectoryStore second = Open();
  ASSERT_TRUE(Save(m_old, first));
  second.RemoveStorage(Wide("/.vcs"));
  ASSERT_TRUE(first.Commit());
  EXPECT_FALSE(second.CommitBlobStream(Wide("/.vcs/refs/heads/x"), StreamOf("text")));
  EXPECT_FALSE(second.Commit());
  EXPECT_EQ(Load(first), Describe(m_old));
}

TEST_F(DirectoryStoreTest, LockKeepsOtherWritersAway) {
  DirectoryStore first = Open();
  DirectoryStore second = Open();
  ASSERT_TRUE(first.Lock());
  EXPECT_FALSE(second.Lock());
  EXPECT_FALSE(Save(m_new, second));
  SaveAndCommit(first, m_old);
  EXPECT_FALSE(second.Lock());
  first.Unlock();
  EXPECT_TRUE(second.Lock());
  SaveAndCommit(second, m_new);
}

TEST_F(DirectoryStoreTest, SaveOverAStateThatWasNotLoadedIsRefused) {
  DirectoryStore first = Open();
  DirectoryStore second = Open();
  SaveAndCommit(first, m_old);
  EXPECT_EQ(Load(second), Describe(m_old));
  CommitFile(m_old, Wide("master"), "more", "work");
  SaveAndCommit(first, m_old);
  EXPECT_FALSE(Save(m_new, second));
  EXPECT_NE(second.LastError().find("replaced"), std::string::npos) << second.LastError();
  EXPECT_FALSE(second.Commit());
  EXPECT_EQ(Load(first), Describe(m_old));
  second.Refresh();
  SaveAndCommit(second, m_new);
}

TEST_F(DirectoryStoreTest, AbandonedFirstTransactionLeavesAnEmptyStore) {
  DirectoryStore reader = Open();
  EXPECT_EQ(Load(reader), "0 commits, 0 trees, 0 blobs");
  {
    DirectoryStore store = Open();
    ASSERT_TRUE(Save(m_old, store));
  }
  EXPECT_EQ(Load(reader), "0 commits, 0 trees, 0 blobs");
  EXPECT_EQ(reader.LastError(), "");
  SaveAndCommit(reader, m_new);
}

TEST_F(DirectoryStoreTest, FolderIsMadeWithoutItsParents) {
  DirectoryStore store(m_folder.Path() / "made", NotDurable());
  SaveAndCommit(store, m_old);
  DirectoryStore orphan(m_folder.Path() / "missing" / "child", NotDurable());
  EXPECT_FALSE(Save(m_old, orphan));
  EXPECT_NE(orphan.LastError().find("missing"), std::string::npos) << orphan.LastError();
  EXPECT_FALSE(orphan.Commit());
}

TEST_F(DirectoryStoreTest, ReadingMakesNoFile) {
  DirectoryStore store = Open();
  EXPECT_EQ(Load(store), "0 commits, 0 trees, 0 blobs");
  EXPECT_EQ(store.LastError(), "");
  EXPECT_TRUE(fs::is_empty(m_folder.Path()));
}

TEST_F(DirectoryStoreTest, MovedStoreContinues) {
  DirectoryStore store = Open();
  ASSERT_TRUE(Save(m_old, store));
  DirectoryStore moved = std::move(store);
  ASSERT_TRUE(moved.Commit());
  store = std::move(moved);
  EXPECT_EQ(Load(store), Describe(m_old));
}

}  // namespace
}  // namespace TalVcs::Kit
