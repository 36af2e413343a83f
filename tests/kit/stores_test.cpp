#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/memory_store.h>
#include <talvcs/persistence/path_builder.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>

/// What every store of the companion library does. Another one joins with a class like these: a
/// store, and how what was written becomes visible.
namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

class InMemory {
 public:
  MemoryStore& Store() { return m_store; }
  void Finish() {}

 private:
  MemoryStore m_store;
};

template <bool durable>
class InDirectory {
 public:
  DirectoryStore& Store() { return m_store; }
  void Finish() { ASSERT_TRUE(m_store.Commit()) << m_store.LastError(); }

 private:
  static DirectoryStoreOptions Options() {
    DirectoryStoreOptions options;
    options.durable = durable;
    return options;
  }

  TemporaryFolder m_folder;
  DirectoryStore m_store{m_folder.Path(), Options()};
};

template <class Kind>
class StoreSuite : public testing::Test {
 protected:
  bool Put(const WideString& path, std::string_view bytes) {
    Stream stream = m_kind.Store().CreateBlobStream(path);
    BufferOf(bytes).AppendTo(stream, nullptr);
    stream.SeekToBegin();
    const bool done = m_kind.Store().CommitBlobStream(path, stream);
    m_kind.Finish();
    return done;
  }

  /// Returns what stands under a path, or "absent".
  std::string Get(const WideString& path) {
    StreamIO reader = m_kind.Store().OpenBlob(path);
    Buffer bytes;
    return reader && reader.ReadToEnd(bytes) ? Bytes(bytes) : "absent";
  }

  std::vector<std::string> List(std::string_view directory) {
    return Ascii(m_kind.Store().ListBlobs(Wide(directory)));
  }

  Kind m_kind;
};

using Kinds = testing::Types<InMemory, InDirectory<true>, InDirectory<false>>;

class KindNames {
 public:
  template <class Kind>
  static std::string GetName(int /*index*/) {
    if (std::is_same_v<Kind, InMemory>) return "Memory";
    return std::is_same_v<Kind, InDirectory<true>> ? "DurableDirectory" : "Directory";
  }
};

TYPED_TEST_SUITE(StoreSuite, Kinds, KindNames);

const std::string kId = "ab" + std::string(61, '0') + "c";

WideString ObjectPath(const std::string& id) {
  return PathBuilder(WideString()).GetObjectW(Wide(id));
}
WideString BranchPath(const WideString& name) { return PathBuilder(WideString()).GetBranch(name); }

TYPED_TEST(StoreSuite, EmptyStoreHasNothing) {
  EXPECT_EQ(this->Get(ObjectPath(kId)), "absent");
  EXPECT_EQ(this->Get(WideString()), "absent");
  EXPECT_TRUE(this->List("/.vcs/refs/heads").empty());
  EXPECT_TRUE(this->List("/.vcs/objects/ab").empty());
  EXPECT_TRUE(this->List("").empty());
}

TYPED_TEST(StoreSuite, WrittenStreamsAreRead) {
  EXPECT_TRUE(this->Put(ObjectPath(kId), std::string_view("blob 3\0a\nb", 10)));
  EXPECT_TRUE(this->Put(BranchPath(Wide("master")), kId));
  EXPECT_TRUE(this->Put(Wide("/.vcs/objects/empty"), ""));
  EXPECT_TRUE(this->Put(Wide("elsewhere"), "anything"));
  EXPECT_EQ(this->Get(ObjectPath(kId)), std::string("blob 3\0a\nb", 10));
  EXPECT_EQ(this->Get(BranchPath(Wide("master"))), kId);
  EXPECT_EQ(this->Get(Wide("/.vcs/objects/empty")), "");
  EXPECT_EQ(this->Get(Wide("elsewhere")), "anything");
  EXPECT_EQ(this->Get(Wide("/.vcs/objects")), "absent");
}

TYPED_TEST(StoreSuite, StreamIsStoredFromItsPositionOn) {
  Stream stream = this->m_kind.Store().CreateBlobStream(Wide("name"));
  BufferOf("head and tail").AppendTo(stream, nullptr);
  static_cast<IStream*>(stream)->Seek(9);
  EXPECT_TRUE(this->m_kind.Store().CommitBlobStream(Wide("name"), stream));
  this->m_kind.Finish();
  EXPECT_EQ(this->Get(Wide("name")), "tail");
}

TYPED_TEST(StoreSuite, StreamHandleWithoutStreamIsRefused) {
  EXPECT_FALSE(this->m_kind.Store().CommitBlobStream(Wide("name"), Stream()));
  EXPECT_EQ(this->Get(Wide("name")), "absent");
}

TYPED_TEST(StoreSuite, SecondStreamOfAPathReplacesTheFirst) {
  this->Put(BranchPath(Wide("master")), "first");
  this->Put(BranchPath(Wide("master")), "2nd");
  EXPECT_EQ(this->Get(BranchPath(Wide("master"))), "2nd");
  EXPECT_EQ(this->List("/.vcs/refs/heads").size(), 1u);
}

TYPED_TEST(StoreSuite, RemovalRemovesOnlyStreamsBelowThePath) {
  this->Put(ObjectPath(kId), "blob 0");
  this->Put(BranchPath(Wide("master")), kId);
  this->Put(Wide("/.vcs2/kept"), "1");
  this->Put(Wide("/.vcs"), "2");
  this->Put(Wide("other/.vcs/objects/x"), "3");
  this->m_kind.Store().RemoveStorage(Wide("/.vcs"));
  this->m_kind.Finish();
  EXPECT_EQ(this->Get(ObjectPath(kId)), "absent");
  EXPECT_EQ(this->Get(BranchPath(Wide("master"))), "absent");
  EXPECT_EQ(this->Get(Wide("/.vcs2/kept")), "1");
  EXPECT_EQ(this->Get(Wide("/.vcs")), "2");
  EXPECT_EQ(this->Get(Wide("other/.vcs/objects/x")), "3");
}

TYPED_TEST(StoreSuite, RemovalOfAPartKeepsTheOthers) {
  const std::string second = "cd" + std::string(62, '1');
  this->Put(ObjectPath(kId), "blob 0");
  this->Put(ObjectPath(second), "blob 1");
  this->m_kind.Store().RemoveStorage(Wide("/.vcs/objects/ab"));
  this->m_kind.Finish();
  EXPECT_EQ(this->Get(ObjectPath(kId)), "absent");
  EXPECT_EQ(this->Get(ObjectPath(second)), "blob 1");
}

TYPED_TEST(StoreSuite, ListsNamesDirectlyBelow) {
  this->Put(ObjectPath(kId), "blob 0");
  this->Put(ObjectPath("ab" + std::string(62, '1')), "blob 1");
  this->Put(ObjectPath("ac" + std::string(62, '1')), "blob 2");
  this->Put(Wide("/folder/one"), "");
  this->Put(Wide("/folder/deep/two"), "");
  const std::vector<std::string> names{std::string(61, '0') + "c", std::string(62, '1')};
  EXPECT_EQ(this->List("/.vcs/objects/ab"), names);
  EXPECT_EQ(this->List("/.vcs/objects/ab/"), names);
  EXPECT_EQ(this->List("/folder"), std::vector<std::string>{"one"});
  EXPECT_TRUE(this->List("/.vcs/objects").empty());
  EXPECT_TRUE(this->List("/fold").empty());
}

std::vector<WideString> OddBranchNames() {
  std::vector<WideString> names;
  for (const std::string_view name :
       {"",    ".",    "..",    "../../escape", "a",    "a/b",  "a/b/", "a//b",  "/",     "/a",
        "\\",  "a\\b", "C:",    "con",          "Case", "case", "CASE", "tail.", "tail ", "*?\"<>|",
        "%41", "~",    "state", ".vcs",         "-rf"}) {
    names.push_back(Wide(name));
  }
  for (const int unit : {0x01, 0x0A, 0x7F, 0xE4, 0xD800, 0xDFFF, 0xFEFF, 0xFFFF}) {
    const WideChar units[] = {static_cast<WideChar>(unit)};
    names.push_back(WideString(units, 1));
  }
  const WideChar zero[] = {'a', 0, 'b'};
  names.push_back(WideString(zero, 3));
  const WideChar reversed[] = {0xDE00, 0xD83D};
  names.push_back(WideString(reversed, 2));
  const WideChar pair[] = {0xD83D, 0xDE00};
  names.push_back(WideString(pair, 2));
  const WideChar composed[] = {0xE9};
  const WideChar decomposed[] = {'e', 0x301};
  names.push_back(WideString(composed, 1));
  names.push_back(WideString(decomposed, 2));
  names.push_back(Wide(std::string(300, 'n')));
  names.push_back(Wide(std::string(299, 'n') + "m"));
  return names;
}

TYPED_TEST(StoreSuite, BranchNamesOfAnyTextComeBack) {
  std::vector<WideString> names = OddBranchNames();
  for (std::size_t index = 0; index < names.size(); ++index) {
    const std::string text = std::to_string(index);
    Stream stream = StreamOf(text);
    ASSERT_TRUE(this->m_kind.Store().CommitBlobStream(BranchPath(names[index]), stream));
  }
  this->m_kind.Finish();
  for (std::size_t index = 0; index < names.size(); ++index) {
    EXPECT_EQ(this->Get(BranchPath(names[index])), std::to_string(index)) << Ascii(names[index]);
  }
  std::vector<std::string> expected = Ascii(names);
  std::vector<std::string> listed = this->List("/.vcs/refs/heads");
  std::sort(expected.begin(), expected.end());
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, expected);
}

TYPED_TEST(StoreSuite, LoadsWhatWasSaved) {
  Repository saved = OldState();
  CommitFile(saved, Wide("topic/a b"), "folder/with blank", "text");
  ASSERT_TRUE(Save(saved, this->m_kind.Store()));
  this->m_kind.Finish();
  EXPECT_EQ(Load(this->m_kind.Store()), Describe(saved));
}

TYPED_TEST(StoreSuite, SecondSaveReplacesTheFirst) {
  Repository first = OldState();
  Repository second = NewState();
  ASSERT_TRUE(Save(first, this->m_kind.Store()));
  this->m_kind.Finish();
  ASSERT_TRUE(Save(second, this->m_kind.Store()));
  this->m_kind.Finish();
  EXPECT_EQ(Load(this->m_kind.Store()), Describe(second));
}

TYPED_TEST(StoreSuite, CleanUpLeavesNothing) {
  Repository repository = OldState();
  Save(repository, this->m_kind.Store());
  this->m_kind.Finish();
  Serializer(&this->m_kind.Store(), WideString()).CleanUpStorage();
  this->m_kind.Finish();
  EXPECT_EQ(Load(this->m_kind.Store()), "0 commits, 0 trees, 0 blobs");
}

TYPED_TEST(StoreSuite, LargeStreamComesBack) {
  std::string bytes;
  for (int index = 0; index < 300000; ++index) bytes += std::to_string(index);
  this->Put(ObjectPath(kId), bytes);
  EXPECT_TRUE(this->Get(ObjectPath(kId)) == bytes);
}

}  // namespace
}  // namespace TalVcs::Kit
