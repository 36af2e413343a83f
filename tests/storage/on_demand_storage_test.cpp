#include <gtest/gtest.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>
#include <talvcs/storage/on_demand_storage.h>
#include <tests/support/contents.h>
#include <tests/support/map_object_reader.h>
#include <tests/support/objects.h>
#include <tests/support/text.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// A store, and repositories that are opened on it.
class OnDemand : public ::testing::Test {
 protected:
  std::unique_ptr<Repository> Open() {
    auto storage = std::make_unique<OnDemandStorage>(m_reader, m_heads);
    m_storage = storage.get();
    return std::make_unique<Repository>(std::move(storage));
  }

  /// Writes what the repository that was opened last has and the store lacks.
  std::uint64_t Save() {
    const auto put = [](void* reader, const Id& id, const Buffer& packed) {
      static_cast<MapObjectReader*>(reader)->Put(id, packed);
    };
    const std::uint64_t count = m_storage->VisitUnsaved({m_reader.get(), put});
    m_storage->MarkSaved();
    m_heads = m_storage->GetHeadIds();
    return count;
  }

  /// Commits an edit of each path to a content.
  static Id CommitFiles(Repository& repository,
                        const std::vector<std::pair<std::string, std::string>>& files) {
    Commit commit(&repository, false);
    for (const auto& [path, content] : files) {
      commit.AddBlob(&repository, Wide(path), *SharedBlob(content));
    }
    return repository.DoCommit(commit)->GetId();
  }

  std::shared_ptr<MapObjectReader> m_reader = std::make_shared<MapObjectReader>();
  std::vector<OnDemandStorage::BranchHead> m_heads = {{Wide("master"), Id()}};
  OnDemandStorage* m_storage = nullptr;
};

TEST_F(OnDemand, OpeningReadsNothing) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}});
  EXPECT_EQ(Save(), 4U);
  repository = Open();
  EXPECT_EQ(m_reader->calls, 0U);
  EXPECT_EQ(m_storage->GetCommitCount(), 0U);
}

TEST_F(OnDemand, BranchWithoutANameIsNotCreated) {
  const auto repository = Open();
  EXPECT_FALSE(m_storage->CreateBranch(TalStringViewT<WideChar>(), nullptr));
  EXPECT_FALSE(m_storage->BranchExist(TalStringViewT<WideChar>()));
}

TEST_F(OnDemand, ReadingOneFileReadsThePathToIt) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}, {"a/c", "2"}, {"d/e", "3"}, {"f", "4"}});
  Save();
  repository = Open();
  const cow_ptr<Blob> blob = repository->GetHead()->GetBlob(TAL_WIDE("a/b"));
  ASSERT_TRUE(blob);
  EXPECT_EQ(TextOf(blob), "1");
  EXPECT_EQ(m_reader->calls, 4U);  // commit, root, "a", "a/b"
}

TEST_F(OnDemand, EditingWritesTheChangeAlone) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}, {"a/c", "2"}, {"d/e", "3"}, {"f", "4"}});
  Save();
  repository = Open();
  const Id head = CommitFiles(*repository, {{"a/b", "5"}});
  EXPECT_EQ(m_reader->calls, 3U);  // commit, root, "a"
  EXPECT_EQ(Save(), 4U);
  repository = Open();
  EXPECT_EQ(repository->GetHead()->GetId(), head);
  EXPECT_EQ(TextOf(repository->GetHead()->GetBlob(TAL_WIDE("d/e"))), "3");
  EXPECT_EQ(TextOf(repository->GetHead()->GetBlob(TAL_WIDE("a/b"))), "5");
}

TEST_F(OnDemand, HistoryIsReadByDoublingWindows) {
  auto repository = Open();
  for (int index = 0; index < 10; ++index) CommitFiles(*repository, {{"f", std::to_string(index)}});
  Save();
  repository = Open();
  std::vector<std::uint64_t> windows;
  for (cow_ptr<Commit> at = repository->GetHead(); at; at = at->GetParent()) {
    windows.push_back(m_reader->lastHistory);
  }
  // This reader passes nothing ahead, so every commit is asked for.
  EXPECT_EQ(windows, (std::vector<std::uint64_t>{1, 1, 2, 4, 8, 16, 32, 64, 128, 256}));
}

TEST_F(OnDemand, LinkThatCannotBeReadStaysAbsent) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}});
  Save();
  repository = Open();
  m_reader->failAfter = 3;
  EXPECT_THROW(repository->GetHead()->GetBlob(TAL_WIDE("a/b")), std::runtime_error);
  EXPECT_EQ(TextOf(repository->GetHead()->GetBlob(TAL_WIDE("a/b"))), "1");
}

TEST_F(OnDemand, TrimLetsGoOfWhatTheStoreHas) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}, {"c", "2"}});
  Save();
  repository = Open();
  const Id new_head = CommitFiles(*repository, {{"a/b", "3"}});
  repository->GetHead()->GetTree()->GetAllBlobPaths();
  m_storage->Trim();
  m_reader->calls = 0;
  EXPECT_EQ(TextOf(repository->GetHead()->GetBlob(TAL_WIDE("a/b"))), "3");
  EXPECT_EQ(m_reader->calls, 0U);
  EXPECT_EQ(TextOf(repository->GetHead()->GetBlob(TAL_WIDE("c"))), "2");
  EXPECT_EQ(m_reader->calls, 1U);
  EXPECT_EQ(repository->GetHead()->GetId(), new_head);
  EXPECT_TRUE(repository->GetHead()->GetParent());
}

TEST_F(OnDemand, HandlesOutliveTheRepository) {
  auto repository = Open();
  CommitFiles(*repository, {{"a/b", "1"}});
  CommitFiles(*repository, {{"a/b", "2"}});
  Save();
  repository = Open();
  const cow_ptr<Commit> head = repository->GetHead();
  repository.reset();
  EXPECT_EQ(TextOf(head->GetParent()->GetBlob(TAL_WIDE("a/b"))), "1");
}

/// A storage in memory that lets another one count.
class CountingByAnother : public MemObjectsStorage {
 public:
  explicit CountingByAnother(const IObjectsStorage& other)
      : MemObjectsStorage(std::initializer_list<TalStringViewT<WideChar>>()), m_other(other) {}
  std::uint64_t GetCommitCount() const override { return m_other.GetCommitCount(); }

 private:
  const IObjectsStorage& m_other;
};

TEST_F(OnDemand, FromReturnsTheStorageIfItIsOnDemand) {
  const auto repository = Open();
  EXPECT_EQ(OnDemandStorage::From(repository->GetStorage()), m_storage);
  const IObjectsStorage& constant = *m_storage;
  EXPECT_EQ(OnDemandStorage::From(&constant), m_storage);
}

TEST_F(OnDemand, FromReturnsNullForAnotherStorage) {
  const auto repository = Open();
  CountingByAnother other(*m_storage);
  EXPECT_EQ(OnDemandStorage::From(&other), nullptr);
  IObjectsStorage* const none = nullptr;
  EXPECT_EQ(OnDemandStorage::From(none), nullptr);
}

}  // namespace
}  // namespace TalVcs::Testing
