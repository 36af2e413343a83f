// What no store could bring back is refused before anything is written.

#include <gtest/gtest.h>
#include <kit/open/save.h>
#include <kit/store/fault_injection_store.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// A blob, tree or commit of a host's own that packs itself as a note.
template <class Base>
class Note final : public Base {
 public:
  TalStringT<char> GetHeader() const override { return "note"; }
  const Buffer& GetData() const override { return m_data; }

 private:
  Buffer m_data = BufferOf("abc");
};

/// Requires that saving is refused with that subject, and that the store sees no write.
void ExpectRefused(Repository& repository, const std::string& subject) {
  MemoryObjectStore memory;
  FaultInjectionStore store(memory);
  const Result<SaveReport> refused = Save(repository, store);
  ASSERT_EQ(CodeOf(refused), "Unsupported");
  EXPECT_EQ(refused.error().subject, subject);
  EXPECT_EQ(refused.error().unchanged, "nothing was written");
  EXPECT_EQ(store.CountCalls(StoreOperation::Write), 0u);
  EXPECT_EQ(store.CountCalls(StoreOperation::MoveHeads), 0u);
}

/// A repository whose head has a tree under "folder/note".
Repository WithTree(const cow_ptr<Tree>& note) {
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"folder/file", "1"}});
  Commit commit(&repository, false);
  repository.SyncWithStorage(note);
  commit.AddObject(&repository, Wide("folder/note"), note->GetId());
  repository.DoCommit(commit);
  return repository;
}

TEST(SaveRefusal, TreeOfAHostsOwnClass) {
  Repository repository = WithTree(cow_ptr<Tree>(std::make_shared<Note<Tree>>()));
  ExpectRefused(repository, "folder/note");
}

TEST(SaveRefusal, BlobOfAHostsOwnClass) {
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"folder/file", "1"}});
  const cow_ptr<Blob> note(std::make_shared<Note<Blob>>());
  repository.SyncWithStorage(note);
  Commit commit(&repository, false);
  commit.AddObject(&repository, Wide("folder/note"), note->GetId());
  repository.DoCommit(commit);
  ExpectRefused(repository, "folder/note");
}

TEST(SaveRefusal, CommitOfAHostsOwnClass) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> note(std::make_shared<Note<Commit>>());
  repository.CreateBranch(Wide("notes"), repository.SyncWithStorage(note));
  ExpectRefused(repository, "notes");
}

TEST(SaveRefusal, NameWithAZero) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  const std::basic_string<WideChar> name{'d', '/', 'a', 0, 'b'};
  commit.AddBlob(&repository, TalStringViewT<WideChar>(name), BlobOf("1"));
  repository.DoCommit(commit);
  ExpectRefused(repository, std::string("d/a\0b", 5));
}

TEST(SaveRefusal, BranchNameWithAZero) {
  Repository repository = SmallHistory();
  const std::basic_string<WideChar> name{'a', 0, 'b'};
  repository.CreateBranch(TalStringViewT<WideChar>(name), repository.GetHead());
  MemoryObjectStore store;
  const Result<SaveReport> refused = Save(repository, store);
  ASSERT_EQ(CodeOf(refused), "BadName");
  EXPECT_EQ(refused.error().subject, std::string("a\0b", 3));
  EXPECT_EQ(store.GetCount(), 0u);
}

TEST(SaveRefusal, ObjectBelowAnOpenedRepositoryToo) {
  const auto store = SmallStore();
  const std::size_t before = store->GetCount();
  OpenedRepository opened = Open(store).value();
  const cow_ptr<Tree> note(std::make_shared<Note<Tree>>());
  opened->SyncWithStorage(note);
  Commit commit(&opened.GetRepository(), false);
  commit.AddObject(&opened.GetRepository(), Wide("a/b/note"), note->GetId());
  opened->DoCommit(commit);
  const Result<SaveReport> refused = Save(opened);
  ASSERT_EQ(CodeOf(refused), "Unsupported");
  EXPECT_EQ(refused.error().subject, "a/b/note");
  EXPECT_EQ(store->GetCount(), before);
}

}  // namespace
}  // namespace TalVcs::Kit
