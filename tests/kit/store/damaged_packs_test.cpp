// What a `DirectoryObjectStore` does with damaged packs and indexes, and with links in their place.

#include <gtest/gtest.h>
#include <kit/internal/pack_record.h>
#include <kit/store/object_codec.h>
#include <tests/kit/store/directory_packs_fixture.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace TalVcs::Kit {
namespace {

using Testing::ReadWhole;
using Testing::WriteWhole;
namespace fs = std::filesystem;

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
  const ObjectKey key = *KeyOf(first.id);
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

#ifndef _WIN32
/// Returns the code of the first failure of opening and saving; `Unknown` if there is none.
ErrorCode CodeOfSave(const fs::path& folder) {
  Result<DirectoryObjectStore> store = DirectoryObjectStore::Open(folder, kQuick);
  if (!store) return store.error().code;
  const Status status = store->Write({{Packed("later")}});
  return status ? ErrorCode::Unknown : status.error().code;
}

// A write would change a file that isn't the store's.
TEST_F(DamagedPacks, LinkInPlaceOfAFileIsRefusedAndItsTargetStays) {
  const fs::path target = m_folder.Path() / "of a host";
  Open().Heads().value();
  for (const char* name : {"state", "lock", "readers", "packs/00000001.pack"}) {
    SCOPED_TRACE(name);
    fs::rename(File(name), target);
    const std::string bytes = ReadWhole(target);
    fs::create_symlink(target, File(name));
    EXPECT_EQ(CodeOfSave(m_folder.Path()), ErrorCode::Unsupported);
    EXPECT_EQ(ReadWhole(target), bytes);
    fs::rename(target, File(name));
  }
  fs::remove(File("lock"));
  fs::create_symlink(target, File("lock"));
  EXPECT_EQ(CodeOfSave(m_folder.Path()), ErrorCode::Unsupported);
  EXPECT_FALSE(fs::exists(target));
}

// A write would replace a pack of another store that has the same number.
TEST_F(DamagedPacks, LinkInPlaceOfAFolderIsRefused) {
  const fs::path other = m_folder.Path() / "another store";
  for (const char* name : {"packs", "objects"}) {
    SCOPED_TRACE(name);
    fs::rename(File(name), other);
    fs::create_directory_symlink(other, File(name));
    EXPECT_EQ(CodeOfSave(m_folder.Path()), ErrorCode::Unsupported);
    fs::remove(File(name));
    fs::rename(other, File(name));
  }
  EXPECT_EQ(ReadWhole(File("packs/00000001.pack")), m_pack);
  EXPECT_EQ(CodeOfSave(m_folder.Path()), ErrorCode::Unknown);
}

TEST_F(DamagedPacks, PipeInPlaceOfAFileDoesNotWait) {
  fs::remove(File("packs/00000001.pack"));
  ASSERT_EQ(::mkfifo(File("packs/00000001.pack").c_str(), 0600), 0);
  {
    DirectoryObjectStore store = Open();
    const std::string read = Read(store, m_objects.front().id);
    EXPECT_TRUE(read == "NotFound" || read == "Damaged") << read;
  }
  fs::remove(File("state"));
  ASSERT_EQ(::mkfifo(File("state").c_str(), 0600), 0);
  EXPECT_EQ(CodeOfSave(m_folder.Path()), ErrorCode::Damaged);
}
#endif

}  // namespace
}  // namespace TalVcs::Kit
