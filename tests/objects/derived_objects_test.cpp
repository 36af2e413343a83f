// Classes of hosts that derive from the library's own: what they override is what is hashed and
// saved.

#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/copying_writer.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/ordinary_repository.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

const std::string kPacked("note 3\0abc", 10);
// SHA-256 of these bytes.
constexpr char kNoteId[] = "a955929d5608db592271b0f98e521e8473c6c18c9a497b422a677e392c5f8112";

/// A blob, tree or commit that packs itself as a note.
template <class Base>
class Note : public Base {
 public:
  TalStringT<char> GetHeader() const override { return "note"; }
  const Buffer& GetData() const override { return m_data; }

 private:
  Buffer m_data = BufferOf("abc");
};

/// One that has its packed form at hand, so that nothing is kept beside it.
template <class Base>
class PackedNote final : public Note<Base> {
 public:
  const Buffer& GetPackedData() const override { return m_packed; }

 private:
  Buffer m_packed = BufferOf(kPacked);
};

template <class Base>
class DerivedObjects : public ::testing::Test {};

using Bases = ::testing::Types<Blob, Tree, Commit>;
TYPED_TEST_SUITE(DerivedObjects, Bases);

TYPED_TEST(DerivedObjects, HaveTheIdOfTheirOverriddenData) {
  const Note<TypeParam> note;
  EXPECT_EQ(Bytes(note.BuildPackedData()), kPacked);
  EXPECT_EQ(IdOf(note), kNoteId);
  EXPECT_EQ(Bytes(note.GetPackedData()), kPacked);
}

TYPED_TEST(DerivedObjects, AreSavedWithTheirOverriddenData) {
  Repository repository = NewOrdinaryRepository();
  repository.SyncWithStorage(cow_ptr<TypeParam>(std::make_shared<PackedNote<TypeParam>>()));
  const std::string id = kNoteId;
  const std::string path = "doc/.vcs/objects/" + id.substr(0, 2) + "/" + id.substr(2);
  MemoryBlobIo shared;
  ASSERT_TRUE(Serializer(&shared, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(shared.streams.at(path), kPacked);
  CopyingWriter copied;
  ASSERT_TRUE(Serializer(&copied, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(copied.streams.at(path)->bytes, kPacked);
}

/// A note that holds, as a blob, what would be hashed together with others.
class LargeNote final : public Note<Blob> {
 public:
  LargeNote() { Blob::operator=(BlobOf(std::string(1000, 'y'))); }
};

TEST(DerivedBlobs, AreLeftOutWhenIdsAreComputedTogether) {
  const LargeNote note;
  const Blob large = BlobOf(std::string(1000, 'x'));
  const Blob* const blobs[] = {&large, &note, &large};
  Blob::ComputeIds(blobs);
  EXPECT_EQ(IdOf(note), kNoteId);
  EXPECT_EQ(IdOf(large), "8d03eb17f82ab2055eda88a0f1aaf8be660c74fbfe318f48d1055cdb435c081c");
}

/// A blob, tree or commit that notes when it is asked for its id or its data.
template <class Base>
class Witness final : public Base {
 public:
  Witness(std::string name, std::vector<std::string>& calls, const char* id = "same")
      : m_name(std::move(name)), m_id(Wide(id)), m_calls(&calls) {}
  Id GetId() const override {
    m_calls->push_back("id of " + m_name);
    return m_id;
  }
  const Buffer& GetData() const override {
    m_calls->push_back("data of " + m_name);
    return Base::GetData();
  }
  const Buffer& GetPackedData() const override {
    m_calls->push_back("packed form of " + m_name);
    return m_packed;
  }

 private:
  std::string m_name;
  Id m_id;
  std::vector<std::string>* m_calls;
  Buffer m_packed = BufferOf("packed");
};

// In each of these, two calls were operands of one expression, in whose order compilers differ.
TYPED_TEST(DerivedObjects, AreComparedByTheIdOfTheLeftOneFirst) {
  std::vector<std::string> calls;
  const Witness<TypeParam> left("left", calls);
  const Witness<TypeParam> right("right", calls);
  EXPECT_TRUE(left == right);
  EXPECT_EQ(calls, (std::vector<std::string>{"id of left", "id of right"}));
}

/// Two directories with a blob of the host's under one name.
class DerivedEntries : public ::testing::Test {
 protected:
  using Calls = std::vector<std::string>;

  cow_ptr<Tree> DirectoryWith(const std::string& name, const char* id) {
    Repository repository = NewRepository();
    repository.SyncWithStorage(cow_ptr<Blob>(std::make_shared<Witness<Blob>>(name, m_calls, id)));
    cow_ptr<Tree> tree;
    EXPECT_TRUE(tree.write()->AddObject(&repository, TAL_WIDE("file"), Id(Wide(id))));
    return tree;
  }
  /// Returns which calls reach the blobs while `act` compares the directories.
  template <class Act>
  Calls CallsOf(Act act) {
    m_calls.clear();
    act();
    return m_calls;
  }

  Calls m_calls;
};

TEST_F(DerivedEntries, AreComparedByTheIdOfTheDiffedTreeFirst) {
  const cow_ptr<Tree> left = DirectoryWith("left", "1");
  const cow_ptr<Tree> right = DirectoryWith("right", "2");
  const Calls in_order = {"id of left", "id of right"};
  EXPECT_EQ(CallsOf([&] { EXPECT_EQ(left->GetLocalBlobDiffs(right).size(), 1U); }), in_order);
  EXPECT_EQ(CallsOf([&] { EXPECT_EQ(left->GetDeepBlobDiffs(right).size(), 1U); }), in_order);
}

TEST_F(DerivedEntries, OfOneIdAreComparedFromBothSides) {
  const cow_ptr<Tree> left = DirectoryWith("left", "1");
  const cow_ptr<Tree> right = DirectoryWith("right", "1");
  EXPECT_EQ(CallsOf([&] { EXPECT_TRUE(left->GetLocalBlobDiffs(right).empty()); }),
            (Calls{"id of left", "id of right", "id of right", "id of left"}));
}

/// A blob or tree with a mode of its own as well.
template <class Base>
class SpecialNote final : public Note<Base> {
 public:
  TalStringT<char> GetStoragePrefix() const override { return "100755"; }
};

template <class Base>
class DerivedRecords : public ::testing::Test {
 protected:
  DerivedRecords() {
    repository.SyncWithStorage(cow_ptr<Base>(std::make_shared<SpecialNote<Base>>()));
  }
  void AddNote(const char* name) {
    EXPECT_TRUE(tree.AddObject(&repository, Wide(name), Id(Wide(kNoteId))));
  }
  void AddX(const char* name) { tree.AddBlob(&repository, Wide(name), BlobOf("x")); }

  Repository repository = NewRepository();
  Tree tree;
};

using Entries = ::testing::Types<Blob, Tree>;
TYPED_TEST_SUITE(DerivedRecords, Entries);

TYPED_TEST(DerivedRecords, HaveModeAndTypeOfTheirClass) {
  this->AddNote("b");
  EXPECT_EQ(Bytes(this->tree.GetData()), std::string("100755 note b\0", 14) + kNoteId);
  EXPECT_EQ(IdOf(this->tree), "85f62339c456d8244e8872901350c0236f46447dd40cf16e08358a0a306f1b93");
}

TYPED_TEST(DerivedRecords, KeepTheirWordsThroughEditsAroundThem) {
  const char* const expected = "ed19d5a68b007d0271be7f15de482a1600a1809c3ffb9946a502fa67ed67bb88";
  this->AddX("a");
  this->AddNote("b");
  this->AddX("c");
  EXPECT_EQ(IdOf(this->tree), expected);
  this->tree = Tree();
  this->AddNote("b");
  this->AddX("c");
  this->AddX("a");
  EXPECT_EQ(IdOf(this->tree), expected);
  for (char name = 'd'; name <= 'z'; ++name) this->AddX(std::string(1, name).c_str());
  for (char name = 'd'; name <= 'z'; ++name) {
    EXPECT_TRUE(this->tree.RemoveObject(&this->repository, Wide(std::string(1, name))));
  }
  EXPECT_EQ(IdOf(this->tree), expected);
}

/// A tree or commit that counts how often what it cached is dropped.
template <class Base>
class Counting final : public Base {
 public:
  int resets = 0;

 protected:
  void ResetState() override {
    ++resets;
    Base::ResetState();
  }
};

TEST(DerivedTrees, AreResetOnceByEachEdit) {
  Repository repository = NewRepository();
  Counting<Tree> tree;
  tree.AddBlob(&repository, TAL_WIDE("a/b/c"), BlobOf("x"));
  EXPECT_EQ(tree.resets, 1);
  tree.AddTree(&repository, TAL_WIDE("a/t"), Tree());
  EXPECT_EQ(tree.resets, 2);
  tree.AddObject(&repository, TAL_WIDE("d"), BlobOf("x").GetId());
  EXPECT_EQ(tree.resets, 3);
  EXPECT_TRUE(tree.RemoveObject(&repository, TAL_WIDE("a/t")));
  EXPECT_EQ(tree.resets, 4);
  EXPECT_TRUE(tree.RemoveObject(&repository, TAL_WIDE("a/b/c")));
  EXPECT_EQ(tree.resets, 5);
}

TEST(DerivedTrees, AreNotResetByAnEditThatFails) {
  Repository repository = NewRepository();
  Counting<Tree> tree;
  tree.AddBlob(&repository, TAL_WIDE("/"), BlobOf("x"));
  tree.AddBlob(nullptr, TAL_WIDE("a"), BlobOf("x"));
  tree.AddObject(&repository, TAL_WIDE("a"), Id());
  tree.RemoveObject(&repository, TAL_WIDE("a"));
  EXPECT_EQ(tree.resets, 0);
}

TEST(DerivedCommits, AreResetOnceByEachChange) {
  Repository repository = NewRepository();
  Counting<Commit> commit;
  commit.SetParent(nullptr);
  commit.SetDescription({});
  commit.SetAuthorName({});
  commit.SetAuthorEmail({});
  commit.SetCommitTime({});
  commit.SetCommitTimezoneBias({});
  EXPECT_EQ(commit.resets, 6);
  commit.AddBlob(&repository, TAL_WIDE("a/b"), BlobOf("x"));
  EXPECT_EQ(commit.resets, 7);
  commit.AddObject(&repository, TAL_WIDE("c"), BlobOf("x").GetId());
  EXPECT_EQ(commit.resets, 8);
  EXPECT_TRUE(commit.RemoveObject(&repository, TAL_WIDE("a/b")));
  EXPECT_EQ(commit.resets, 9);
}

TEST(DerivedCommits, AreNotResetByAnEditThatFailsNorByANewRoot) {
  Repository repository = NewRepository();
  Counting<Commit> commit;
  commit.AddBlob(&repository, {}, BlobOf("x"));
  commit.AddObject(&repository, TAL_WIDE("a"), Id());
  commit.RemoveObject(&repository, TAL_WIDE("a"));
  commit.ReplaceRoot(&repository, Make<Tree>());
  EXPECT_EQ(commit.resets, 0);
}

TEST(DerivedCommits, AreComparedInTheOrderOfTheArgumentsOfACommonBase) {
  std::vector<std::string> calls;
  const cow_ptr<Commit> first(std::make_shared<Witness<Commit>>("first", calls));
  const cow_ptr<Commit> second(std::make_shared<Witness<Commit>>("second", calls));
  const Repository repository = NewRepository();
  EXPECT_EQ(repository.GetCommonBase(first, second).get(), second.get());
  ASSERT_GE(calls.size(), 2U);
  EXPECT_EQ(calls[0], "id of first");
  EXPECT_EQ(calls[1], "id of second");
}

TEST(DerivedBlobs, AreAskedOnceInTheOrderOfTheTablesWhenSaved) {
  std::vector<std::string> calls;
  Repository repository = NewOrdinaryRepository();
  repository.SyncWithStorage(cow_ptr<Blob>(std::make_shared<Witness<Blob>>("blob", calls)));
  calls.clear();
  MemoryBlobIo store;
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(calls, (std::vector<std::string>{"packed form of blob"}));
}

}  // namespace
}  // namespace TalVcs::Testing
