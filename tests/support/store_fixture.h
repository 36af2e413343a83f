#pragma once

#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/ordinary_repository.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// A store that tests fill or damage, and an empty repository to load it into.
class StoreTest : public ::testing::Test {
 protected:
  using Files = std::vector<std::pair<std::string, std::string>>;

  /// Saves a drawn history.
  void SaveHistory(const char* drawing, const char* branches) {
    Repository source = NewOrdinaryRepository();
    PlaceBranches(source, DrawHistory(source, drawing), branches);
    ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
    store.calls.clear();
  }

  /// Puts a commit with this root tree, given as packed bytes, and a branch "master" on it.
  void PutCommitOnTree(const std::string& packedTree) {
    store.PutObject(FakeId(1), packedTree);
    store.PutObject(FakeId(2), Packed("commit", CommitText(FakeId(1), "", "A")));
    store.PutBranch("master", FakeId(2));
  }

  bool Load() { return LoadInto(loaded); }
  bool LoadInto(Repository& repository) {
    return Deserializer(&store, TAL_WIDE("doc")).Deserialize(&repository);
  }

  /// Returns the only commit of the repository, for loads that end under another id.
  cow_ptr<Commit> OnlyCommit() const {
    const CommitTable& commits = loaded.GetStorage()->GetCommits();
    return commits.size() == 1 ? commits.begin()->second : cow_ptr<Commit>();
  }

  std::string& StreamOfObject(const cow_ptr<Commit>& commit) {
    return store.streams.at(MemoryBlobIo::ObjectPath(IdOf(commit)));
  }

  MemoryBlobIo store;
  Repository loaded = NewRepository();
};

}  // namespace TalVcs::Testing
