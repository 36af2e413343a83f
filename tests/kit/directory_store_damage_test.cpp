#include <kit/internal/store_access.h>
#include <tests/kit/directory_store_fixture.h>
#include <tests/kit/faulty_file_system.h>

#include <utility>

namespace TalVcs::Kit {
namespace {

class DirectoryStoreDamage : public DirectoryStoreTest {};

TEST_F(DirectoryStoreDamage, NextCommitRemovesLeftoversOfAKilledSave) {
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
TEST_F(DirectoryStoreDamage, HalfWrittenLeftoverIsWrittenAnew) {
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

TEST_F(DirectoryStoreDamage, ObjectOfWrongSizeIsWrittenAnew) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  WriteWhole(ObjectFile(*m_old.GetHead(Wide("old"))), "short");
  EXPECT_EQ(store.FindDamage().size(), 1u);
  SaveAndCommit(store, m_old);
  EXPECT_TRUE(store.FindDamage().empty());
}

TEST_F(DirectoryStoreDamage, ObjectOfWrongContentIsFoundAndWrittenAnewIfCompared) {
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

TEST_F(DirectoryStoreDamage, MissingObjectFileIsReported) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  fs::remove(ObjectFile(*m_old.GetHead(Wide("old"))));
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
  EXPECT_NE(store.LastError().find("cannot read"), std::string::npos) << store.LastError();
  EXPECT_EQ(store.FindDamage().size(), 1u);
}

TEST_F(DirectoryStoreDamage, EveryDamageOfTheStateIsFound) {
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

// It once looked like an empty store, whose first save removed all the objects.
TEST_F(DirectoryStoreDamage, MissingStateIsDamageWhereThereAreObjects) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const int objects = CountFiles(File("objects"));
  fs::remove(File("state"));
  DirectoryStore damaged = Open();
  EXPECT_EQ(Load(damaged), "damaged 0 commits, 0 trees, 0 blobs");
  EXPECT_NE(damaged.LastError().find("missing"), std::string::npos) << damaged.LastError();
  EXPECT_FALSE(Save(m_new, damaged));
  EXPECT_FALSE(damaged.Commit());
  EXPECT_EQ(damaged.FindDamage().size(), 1u);
  EXPECT_EQ(CountFiles(File("objects")), objects);
  EXPECT_FALSE(fs::exists(File("state")));
}

// A state that couldn't be looked at was taken for a missing one, and an empty one took its place.
TEST_F(DirectoryStoreDamage, TransactionThatFailsToBeginLeavesTheState) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const std::string state = ReadWhole(File("state"));
  bool fired = true;
  for (int number = 1; fired; ++number) {
    const auto files = std::make_shared<FaultyFileSystem>();
    files->FailFrom(number);
    DirectoryStore failing = StoreAccess::Make(m_folder.Path(), NotDurable(), files);
    failing.RemoveStorage(Wide("nothing below this"));
    fired = files->HasFailed();
    failing.Abandon();
    EXPECT_EQ(ReadWhole(File("state")), state) << number;
    ASSERT_LT(number, 100);
  }
}

// A commit over such a state could have taken files of objects that it names for unused ones.
TEST_F(DirectoryStoreDamage, StateThatNoStoreWritesIsDamagedWhateverItsDigest) {
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

TEST_F(DirectoryStoreDamage, FileInPlaceOfTheFolderIsReported) {
  WriteWhole(m_folder.Path() / ".vcs", "a file");
  DirectoryStore store = Open();
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
  EXPECT_FALSE(Save(m_old, store));
  EXPECT_FALSE(store.Commit());
  EXPECT_NE(store.LastError().find(".vcs"), std::string::npos) << store.LastError();
}

TEST_F(DirectoryStoreDamage, FolderThatVanishesFailsTheCommit) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  ASSERT_TRUE(Save(m_new, store));
  fs::remove_all(m_folder.Path());
  EXPECT_FALSE(store.Commit());
  EXPECT_NE(store.LastError().find("state"), std::string::npos) << store.LastError();
}

TEST_F(DirectoryStoreDamage, FolderInPlaceOfAnObjectFailsTheSave) {
  DirectoryStore store = Open();
  SaveAndCommit(store, m_old);
  const fs::path file = ObjectFile(*m_new.GetHead(Wide("new")));
  fs::create_directories(file / "inside");
  EXPECT_FALSE(Save(m_new, store));
  EXPECT_NE(store.LastError().find(file.filename().string()), std::string::npos);
  EXPECT_FALSE(store.Commit());
  EXPECT_EQ(Load(store), Describe(m_old));
}

}  // namespace
}  // namespace TalVcs::Kit
