// What is saved depends on nothing but the edits: not on the byte order, the size of a pointer or
// the type of wide characters. fixed_store.py works the digest out from the format alone.

#include <talvcs/foundation/helpers.h>
#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/merging.h>
#include <tests/support/objects.h>
#include <tests/support/ordinary_repository.h>

#include <cstdint>
#include <map>
#include <string>

namespace TalVcs::Testing {
namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;

class FixedStore : public ::testing::Test {
 protected:
  using Text = TalStringViewT<WideChar>;

  /// Stores the commit with these fields as the head of the current branch. `DoCommit` would give
  /// it the time of the clock.
  void Put(Commit commit, Text description, std::int64_t seconds, std::int64_t minutes) {
    commit.SetAuthorName(TAL_WIDE("Zo\u00EB \u0410\u043D\u043D\u0430 \U0001F600"));
    commit.SetAuthorEmail(TAL_WIDE("zoe@example.org"));
    commit.SetDescription(description.ToString());
    commit.SetCommitTime(Time::FromTimeT(seconds));
    commit.SetCommitTimezoneBias({minutes * kTicksPerMinute});
    const auto stored = repository.SyncWithStorage(Make<Commit>(commit));
    ASSERT_TRUE(repository.MoveBranchTo(repository.GetCurentBranch(), stored));
  }

  void Import() {
    std::string all_bytes;
    for (int byte = 0; byte < 256; ++byte) all_bytes += static_cast<char>(byte);
    Commit commit(&repository, false);
    commit.AddBlob(&repository, TAL_WIDE("readme.txt"), BlobOf("Hello\r\n"));
    commit.AddBlob(&repository, TAL_WIDE("src/core/all.bin"), BlobOf(all_bytes));
    commit.AddBlob(&repository, TAL_WIDE("src/empty"), BlobOf(""));
    // These two are ordered by their code units, and not by their bytes.
    commit.AddBlob(&repository, TAL_WIDE("docs/\uFF5E.txt"), BlobOf("tilde"));
    commit.AddBlob(&repository, TAL_WIDE("docs/\U0001F600.txt"), BlobOf("smile"));
    Put(commit, TAL_WIDE("Import"), 1'000'000'000, 330);
  }

  void EditMaster() {
    Commit commit(&repository, false);
    commit.AddBlob(&repository, TAL_WIDE("readme.txt"), BlobOf("Hello from master\n"));
    commit.RemoveObject(&repository, TAL_WIDE("src/core/all.bin"));
    Put(commit, TAL_WIDE("Take all bytes out\n\nNobody reads them."), -1, -570);
  }

  void EditTopic() {
    ASSERT_TRUE(repository.Checkout(TAL_WIDE("th\u00E8me")));
    Commit commit(&repository, false);
    commit.AddBlob(&repository, TAL_WIDE("readme.txt"), BlobOf("Hello from topic\n"));
    commit.AddBlob(&repository, TAL_WIDE("docs/topic/\u00FC.txt"), BlobOf("topic"));
    Put(commit, TAL_WIDE("\u00DCber das Thema"), 2'147'483'647, -30);
  }

  void MergeTopicIntoMaster() {
    ASSERT_TRUE(repository.Checkout(TAL_WIDE("master")));
    ASSERT_TRUE(repository.Merge(repository.GetHead(TAL_WIDE("th\u00E8me")),
                                 Descending(ConflictChoice::Left)));
    Put(Commit(&repository, true), TAL_WIDE("Merge"), 1'700'000'000, 0);
  }

  void ImportAnotherHistory() {
    ASSERT_TRUE(repository.GetStorage()->CreateBranch(TAL_WIDE("vendor"), nullptr));
    ASSERT_TRUE(repository.Checkout(TAL_WIDE("vendor")));
    Commit commit(&repository, false);
    commit.AddBlob(&repository, TAL_WIDE("vendor.txt"), BlobOf("1"));
    Put(commit, TAL_WIDE("Vendor 1"), 1'700'000'001, 60);
    Commit next(&repository, false);
    next.AddBlob(&repository, TAL_WIDE("vendor.txt"), BlobOf("2"));
    Put(next, TAL_WIDE("Vendor 2"), 1'700'000'002, 825);
  }

  /// Returns the SHA-256 of all streams, in the order of their paths: path, zero byte, size in
  /// decimal digits, zero byte, bytes.
  static std::string DigestOf(const std::map<std::string, std::string>& streams) {
    std::string all;
    for (const auto& [path, bytes] : streams) {
      all += path + '\0' + std::to_string(bytes.size()) + '\0' + bytes;
    }
    return Ascii(Helpers::ComputeEncodedSHA256Hash(all.data(), all.size()));
  }

  Repository repository = NewOrdinaryRepository();
};

TEST_F(FixedStore, SameEditsGiveTheSameBytesEverywhere) {
  Import();
  ASSERT_TRUE(repository.CreateBranch(TAL_WIDE("th\u00E8me"), repository.GetHead()));
  EditMaster();
  EditTopic();
  MergeTopicIntoMaster();
  ImportAnotherHistory();
  ASSERT_TRUE(
      repository.EnsureCommonRootFor(TAL_WIDE("master"), TAL_WIDE("vendor"), TAL_WIDE("root")));
  repository.UpdateStorage();

  MemoryBlobIo store;
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  EXPECT_EQ(store.streams.size(), 34u);
  EXPECT_EQ(DigestOf(store.streams),
            "30ca4b18216acc2cad44fea8fb3464ef544589258cc874cf43b37417864f430f");
}

}  // namespace
}  // namespace TalVcs::Testing
