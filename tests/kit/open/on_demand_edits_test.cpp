// The older parts of the kit on repositories that were opened.

#include <gtest/gtest.h>
#include <kit/batch_edit.h>
#include <kit/memory_store.h>
#include <kit/open/open.h>
#include <kit/save_repository.h>
#include <kit/store/fault_injection_store.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

TEST(SaveRepositoryOnDemand, IsRefusedWithTheStoreUntouchedAndNothingRead) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  MemoryStore target;
  ASSERT_TRUE(target.CommitBlobStream(Wide("doc/.vcs/refs/heads/master"), MemStream::Create(0)));
  store->Restart();
  EXPECT_FALSE(StoreReachable(opened.GetRepository()));
  EXPECT_FALSE(SaveRepository(opened.GetRepository(), target, Wide("doc")));
  EXPECT_EQ(target.GetCount(), 1u);
  EXPECT_EQ(store->CountCalls(), 0u);
}

TEST(BatchEditOnDemand, RemovalReadsNoFile) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  const Id file = opened->GetHead()->GetTree()->GetIdByPath(Wide("a/b/c")).value();
  store->FailObject(file, ErrorCode::Damaged);
  Commit commit(&opened.GetRepository(), false);
  BatchEdit edit;
  edit.RemoveObject(Wide("a/b/c"));
  EXPECT_EQ(edit.ApplyTo(&opened.GetRepository(), commit), 1u);
  opened->DoCommit(commit);
  EXPECT_EQ(ListingOf(opened->GetHead()), "shared/one=1 shared/two=2 top=master's");
}

TEST(BatchEditOnDemand, PathThroughAFileReadsTheFileOfNoOtherName) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  const Id file = opened->GetHead()->GetTree()->GetIdByPath(Wide("shared/one")).value();
  store->FailObject(file, ErrorCode::Damaged);
  Commit commit(&opened.GetRepository(), false);
  BatchEdit edit;
  edit.AddBlob(Wide("shared/three"), BlobOf("3"));
  edit.AddBlob(Wide("a/new"), BlobOf("4"));
  EXPECT_EQ(edit.ApplyTo(&opened.GetRepository(), commit), 2u);
  EXPECT_EQ(TextOf(commit.GetBlob(Wide("shared/three"))), "3");
}

}  // namespace
}  // namespace TalVcs::Kit
