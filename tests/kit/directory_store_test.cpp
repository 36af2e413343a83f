#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
namespace fs = std::filesystem;

DirectoryStoreOptions NotDurable() {
  DirectoryStoreOptions options;
  options.durable = false;
  return options;
}

class DirectoryStoreTest : public testing::Test {
 protected:
  DirectoryStore Open() { return DirectoryStore(m_folder.Path(), NotDurable()); }

  void SaveAndCommit(DirectoryStore& store, Repository& repository) {
    ASSERT_TRUE(Save(repository, store)) << store.LastError();
    ASSERT_TRUE(store.Commit()) << store.LastError();
  }

  fs::path File(const std::string& name) const { return m_folder.Path() / ".vcs" / name; }
  fs::path ObjectFile(const IObject& object) const {
    const std::string id = IdOf(object);
    return File("objects") / id.substr(0, 2) / id.substr(2);
  }
  int ObjectFiles() const { return CountFiles(File("objects")); }

  TemporaryFolder m_folder;
  Repository m_old = OldState();
  Repository m_new = NewState();
};

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

TEST_F(DirectoryStoreTest, UnusedObjectsGoOnceNobodyReads) {
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

TEST_F(DirectoryStoreTest, SaveAfterOneCommitWritesItsObjectsAlone) {
  auto files = std::make_shared<FaultyFileSystem>();
  DirectoryStore store(m_folder.Path(), NotDurable(), files);
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

TEST_F(DirectoryStoreTest, OptionsTellTheRootPath) {
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

TEST_F(DirectoryStoreTest, LeftoversOfAKilledSaveGo) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const std::string name(62, '5');
  fs::create_directories(File("objects") / "55");
  WriteWhole(File("objects") / "55" / name, "half an obj");
  WriteWhole(File("objects") / "55" / (name + ".new"), "");
  WriteWhole(File("state.new"), "TalVcs store 1\n");
  EXPECT_EQ(Load(store), Describe(m_old));
  SaveAndCommit(store, m_new);
  EXPECT_FALSE(fs::exists(File("objects") / "55"));
  EXPECT_FALSE(fs::exists(File("state.new")));
  EXPECT_EQ(Load(store), Describe(m_new));
}

// What a killed save wrote isn't trusted, even where its name is that of an object of the next one.
TEST_F(DirectoryStoreTest, HalfWrittenLeftoverIsWrittenAnew) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const fs::path file = ObjectFile(*m_new.GetHead(Wide("new")));
  fs::create_directories(file.parent_path());
  std::string bytes = Bytes(m_new.GetHead(Wide("new"))->GetPackedData());
  bytes.back() ^= 1;
  WriteWhole(file, bytes);
  SaveAndCommit(store, m_new);
  EXPECT_EQ(Load(store), Describe(m_new));
  EXPECT_TRUE(store.FindDamage().empty());
}

TEST_F(DirectoryStoreTest, ObjectOfWrongSizeIsWrittenAnew) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  WriteWhole(ObjectFile(*m_old.GetHead(Wide("old"))), "short");
  EXPECT_EQ(store.FindDamage().size(), 1u);
  SaveAndCommit(store, m_old);
  EXPECT_TRUE(store.FindDamage().empty());
}

TEST_F(DirectoryStoreTest, ObjectOfWrongContentIsFoundAndWrittenAnewIfCompared) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const cow_ptr<Commit> head = m_old.GetHead(Wide("old"));
  std::string bytes = Bytes(head->GetPackedData());
  bytes.back() ^= 1;
  WriteWhole(ObjectFile(*head), bytes);
  const std::vector<WideString> damaged = store.FindDamage();
  ASSERT_EQ(damaged.size(), 1u);
  EXPECT_EQ(Ascii(damaged[0]), Ascii(PathBuilder(WideString()).GetObjectW(head->GetId())));
  DirectoryStoreOptions options = NotDurable();
  options.compareContents = true;
  DirectoryStore careful(m_folder.Path(), options);
  SaveAndCommit(careful, m_old);
  EXPECT_TRUE(careful.FindDamage().empty());
}

TEST_F(DirectoryStoreTest, MissingObjectFileIsReported) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  fs::remove(ObjectFile(*m_old.GetHead(Wide("old"))));
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
  EXPECT_NE(store.LastError().find("cannot read"), std::string::npos) << store.LastError();
  EXPECT_EQ(store.FindDamage().size(), 1u);
}

TEST_F(DirectoryStoreTest, EveryDamageOfTheStateIsFound) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const std::string good = ReadWhole(File("state"));
  for (std::size_t index = 0; index < good.size(); ++index) {
    std::string flipped = good;
    flipped[index] ^= 1;
    for (const std::string& bad : {flipped, good.substr(0, index)}) {
      WriteWhole(File("state"), bad);
      DirectoryStore damaged = Open();
      ASSERT_EQ(Load(damaged), "damaged 0 commits, 0 trees, 0 blobs") << index;
      ASSERT_FALSE(Save(m_new, damaged)) << index;
      ASSERT_FALSE(damaged.Commit()) << index;
      ASSERT_EQ(damaged.FindDamage().size(), 1u) << index;
    }
  }
  WriteWhole(File("state"), good);
  EXPECT_EQ(Load(store), Describe(m_old));
  EXPECT_TRUE(store.FindDamage().empty());
}

// A commit over such a state could have taken files of objects that it names for unused ones.
TEST_F(DirectoryStoreTest, StateThatNoStoreWritesIsDamagedWhateverItsDigest) {
  const std::string a(32, 'a');
  const std::string b(32, 'b');
  const std::pair<std::string, const char*> states[] = {
      {"2 objects\n" + b + a + "0 streams\n",  // not ascending
       "95fb61d1511e7eee07afb3f1d0042cee7a4d82a36e343d0682c1fc1ddbebe979"},
      {"2 objects\n" + a + a + "0 streams\n",  // twice
       "03d083f7030ef9d4804ce484c58b284e13b26dea485bf373ba1c1110be2f7243"},
      {"0 objects\n2 streams\n1 1\nbx1 1\nax",  // not ascending
       "6d1cd0b9d684beb067bc54dbc4351879dc2db7241e93b40e782013c70743c140"},
      {"0 objects\n2 streams\n1 1\nax1 1\nay",  // twice
       "81364538e2f713a0868ecb7988533c289d5c312fabef06f33891d78831a319b3"},
      {"00 objects\n0 streams\n",  // not the shortest number
       "18c21893d704b7f471b14af0b3bb0db3804db7601de3004344c2552db7f79b23"},
      {"0 objects\n1 streams\n1 1\n\xC0x",  // no UTF-8
       "c8996fe18080f03bb279305c7d65d58a1372b4543c13e13f0a80a3c850c88ebf"},
  };
  DirectoryStore first = Open();
  SaveAndCommit(first, m_old);
  for (const auto& [body, digest] : states) {
    WriteWhole(File("state"), "TalVcs store 1\n" + body + digest + "\n");
    DirectoryStore store = Open();
    EXPECT_EQ(Load(store), "damaged 0 commits, 0 trees, 0 blobs") << body;
    EXPECT_NE(store.LastError().find("damaged"), std::string::npos) << store.LastError();
  }
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

TEST_F(DirectoryStoreTest, FileInPlaceOfTheFolderIsReported) {
  WriteWhole(m_folder.Path() / ".vcs", "a file");
  DirectoryStore store = Open();
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
  EXPECT_FALSE(Save(m_old, store));
  EXPECT_FALSE(store.Commit());
  EXPECT_NE(store.LastError().find(".vcs"), std::string::npos) << store.LastError();
}

TEST_F(DirectoryStoreTest, FolderThatVanishesFailsTheCommit) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  ASSERT_TRUE(Save(m_new, store));
  fs::remove_all(m_folder.Path());
  EXPECT_FALSE(store.Commit());
  EXPECT_NE(store.LastError().find("state"), std::string::npos) << store.LastError();
}

TEST_F(DirectoryStoreTest, FolderInPlaceOfAnObjectFailsTheSave) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const fs::path file = ObjectFile(*m_new.GetHead(Wide("new")));
  fs::create_directories(file / "inside");
  EXPECT_FALSE(Save(m_new, store));
  EXPECT_NE(store.LastError().find(file.filename().string()), std::string::npos);
  EXPECT_FALSE(store.Commit());
  EXPECT_EQ(Load(store), Describe(m_old));
}

TEST_F(DirectoryStoreTest, MovedStoreGoesOn) {
  DirectoryStore store = Open();
  ASSERT_TRUE(Save(m_old, store));
  DirectoryStore moved = std::move(store);
  ASSERT_TRUE(moved.Commit());
  store = std::move(moved);
  EXPECT_EQ(Load(store), Describe(m_old));
}

}  // namespace
}  // namespace TalVcs::Kit
