// A host's reader and writer of which each call goes wrong in turn: it fails, does half, or does
// something else. A save and a load answer as they have to, nothing in the repository suffers, and
// the next ones succeed.

#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/failing_blob_io.h>
#include <tests/support/history_drawing.h>
#include <tests/support/invariants.h>
#include <tests/support/ordinary_repository.h>

#include <set>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using Fault = FailingBlobIo::Fault;

bool Save(const Repository& repository, FailingBlobIo& store) {
  return Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage());
}
bool Load(Repository& repository, FailingBlobIo& store) {
  return Deserializer(&store, TAL_WIDE("doc")).Deserialize(&repository);
}

class FailingIo : public ::testing::TestWithParam<Fault> {
 protected:
  FailingIo() {
    PlaceBranches(m_repository, DrawHistory(m_repository, "A-B-C; B-D"), "master=C topic=D");
  }

  /// Each branch is as it was saved or, unless it has to be `whole`, isn't there.
  static void ExpectBranches(const Repository& loaded, bool whole) {
    const std::pair<const char*, const char*> branches[] = {{"master", "A-B-C"},
                                                            {"topic", "A-B-D"}};
    for (const auto& [name, chain] : branches) {
      const std::string found = ChainOf(loaded, name);
      if (whole || !found.empty()) {
        EXPECT_EQ(found, chain);
        EXPECT_EQ(ListingOf(loaded.GetHead(Wide(name))),
                  std::string("lib/common=common name=") + chain[4]);
      }
    }
  }

  Repository m_repository = NewOrdinaryRepository();
  std::set<std::string> m_spoilt;  // the names of the calls that went wrong
};

TEST_P(FailingIo, EachCallOfASave) {
  const std::string before = Inventory(m_repository);
  FailingBlobIo whole;
  ASSERT_TRUE(Save(m_repository, whole));
  for (std::size_t number = 0;; ++number) {
    FailingBlobIo store;
    store.streams["doc/.vcs/objects/old"] = "of a store that was here before";
    store.Spoil(number, GetParam());
    // False if a stream wasn't taken. What became of one on its way to the host isn't looked at.
    const bool saved = Save(m_repository, store);
    EXPECT_EQ(saved, store.refused == 0) << number;
    EXPECT_EQ(Inventory(m_repository), before) << number;
    EXPECT_EQ(FindViolation(m_repository), "") << number;
    if (!store.HasFired()) break;
    m_spoilt.insert(store.spoilt);
    Repository target = NewRepository();
    if (Load(target, store)) ExpectBranches(target, saved);
    EXPECT_EQ(FindViolation(target), "") << number;

    store.refused = 0;
    EXPECT_TRUE(Save(m_repository, store)) << number;
    EXPECT_EQ(store.streams, whole.streams) << number;
  }
  EXPECT_EQ(m_spoilt, (std::set<std::string>{"CommitBlobStream", "CreateBlobStream", "GetPosition",
                                             "GetSize", "Read", "RemoveStorage", "Seek", "Write"}));
}

TEST_P(FailingIo, EachCallOfALoad) {
  FailingBlobIo store;
  ASSERT_TRUE(Save(m_repository, store));
  for (std::size_t number = 0;; ++number) {
    Repository target = NewRepository();
    PlaceBranches(target, DrawHistory(target, "X"), "kept=X");
    store.Spoil(number, GetParam());
    const bool loaded = Load(target, store);
    EXPECT_EQ(FindViolation(target), "") << number;
    EXPECT_EQ(ChainOf(target, "kept"), "X") << number;
    if (!store.HasFired()) {
      EXPECT_TRUE(loaded);
      break;
    }
    m_spoilt.insert(store.spoilt);
    // Nobody knows of branches that the host doesn't list.
    if (loaded) ExpectBranches(target, store.spoilt != "ListBlobs");
    if (GetParam() == Fault::Failed && store.spoilt == "OpenBlob") {
      EXPECT_FALSE(loaded) << number;
    }

    EXPECT_TRUE(Load(target, store)) << number;
    ExpectBranches(target, true);
    EXPECT_EQ(FindViolation(target), "") << number;
  }
  EXPECT_EQ(m_spoilt,
            (std::set<std::string>{"GetPosition", "GetSize", "ListBlobs", "OpenBlob", "Read"}));
}

INSTANTIATE_TEST_SUITE_P(All, FailingIo,
                         ::testing::Values(Fault::Failed, Fault::Shortened, Fault::Altered),
                         [](const ::testing::TestParamInfo<Fault>& fault) {
                           return fault.param == Fault::Failed      ? "Failed"
                                  : fault.param == Fault::Shortened ? "Shortened"
                                                                    : "Altered";
                         });

}  // namespace
}  // namespace TalVcs::Testing
