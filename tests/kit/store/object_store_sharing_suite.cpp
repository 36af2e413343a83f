// What every durable object store does for several store objects, as several processes have them.

#include <tests/kit/store/object_store_suite.h>
#include <tests/support/text.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Ascii;

using HeadList = std::vector<Head>;

TEST_P(ObjectStoreSuite, OneStoreObjectReadsWhatAnotherHasWritten) {
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  EXPECT_EQ(HeadsOf(*other), HeadList());
  EXPECT_EQ(other->Missing({{m_one.id}}).value().size(), 1U);
  Write(Store(), {m_one});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  EXPECT_EQ(HeadsOf(*other), (HeadList{{"master", m_one.id}}));
  EXPECT_EQ(ReadOne(*other, m_one.id), std::string("blob 3\0one", 10));
  EXPECT_TRUE(other->Missing({{m_one.id}}).value().empty());
  EXPECT_EQ(ListOf(*other), std::vector<std::string>{Ascii(m_one.id)});
}

TEST_P(ObjectStoreSuite, OneStoreObjectReadsTheValuesOfAnother) {
  if (IsUsedAlone()) return;
  if (RefusesValues()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  EXPECT_EQ(other->Value("current").value(), std::nullopt);
  ASSERT_TRUE(Store().SetValue("current", "master").ok());
  EXPECT_EQ(other->Value("current").value(), "master");
}

TEST_P(ObjectStoreSuite, StoreObjectsMoveHeadsInTurn) {
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  ExpectMoved(*other, {{"master", m_one.id, m_two.id}, {"topic", Id(), m_one.id}});
  const Status late = Move(Store(), {{"master", m_one.id, m_three.id}});
  ExpectFails(late, ErrorCode::Conflict);
  EXPECT_EQ(late.error().heads, (HeadList{{"master", m_two.id}}));
  ExpectMoved(Store(), {{"master", m_two.id, Id()}});
  EXPECT_EQ(HeadsOf(*other), (HeadList{{"topic", m_one.id}}));
}

TEST_P(ObjectStoreSuite, SaveIsBusyAfterAnotherStoreObjectHasRemovedObjects) {
  if (RefusesRemovals()) return;
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {});
  EXPECT_TRUE(other->Missing({{m_one.id}}).value().empty());
  ASSERT_TRUE(RemoveAllBut(Store(), {m_two.id}).ok());
  ExpectFails(Move(*other, {{"master", Id(), m_one.id}}), ErrorCode::Busy);
  EXPECT_EQ(other->Missing({{m_one.id}}).value(), std::vector<Id>{m_one.id});
  Write(*other, {m_one});
  ExpectMoved(*other, {{"master", Id(), m_one.id}});
  EXPECT_EQ(ReadOne(Store(), m_one.id), std::string("blob 3\0one", 10));
}

// A reader takes what is below a commit for whole as soon as the store has the commit.
TEST_P(ObjectStoreSuite, SaveThatARemovalBreaksLeavesNothingThatNamesWhatIsGone) {
  if (RefusesRemovals()) return;
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  EXPECT_EQ(other->Missing({{m_firstCommit.id, m_secondCommit.id}}).value().size(), 2U);
  Write(*other, {m_firstCommit});
  ASSERT_TRUE(RemoveAllBut(Store(), {m_two.id}).ok());
  if (Store().Missing({{m_firstCommit.id}}).value().empty()) return;
  Status moved = other->Write({{m_secondCommit}});
  if (moved) moved = Move(*other, {{"master", Id(), m_secondCommit.id}});
  if (moved) {
    // The store kept the first commit in memory, and has put both into its place now.
    EXPECT_EQ(ReadHistory(*other, m_secondCommit.id, 5).size(), 2U);
    return;
  }
  ExpectFails(moved, ErrorCode::Busy);
  EXPECT_EQ(other->Missing({{m_firstCommit.id, m_secondCommit.id}}).value(),
            (std::vector<Id>{m_firstCommit.id, m_secondCommit.id}));
}

TEST_P(ObjectStoreSuite, NobodyElseMovesHeadsDuringAMark) {
  if (RefusesRemovals()) return;
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  Write(Store(), {m_one});
  Write(*other, {m_two});
  ExpectMoved(*other, {});
  EXPECT_TRUE(other->Missing({{m_two.id}}).value().empty());
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  const Result<RemovedObjects> removed =
      Store().RemoveUnmarked([&](std::span<const Head> heads) -> Result<std::vector<Id>> {
        ExpectFails(Move(*other, {{"other", Id(), m_two.id}}), ErrorCode::Busy);
        return std::vector<Id>{heads.front().id};
      });
  ASSERT_TRUE(removed.ok()) << Describe(removed.error());
  EXPECT_EQ(removed->count, 1U);
  ExpectFails(Move(*other, {{"other", Id(), m_two.id}}), ErrorCode::Busy);
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_one.id}}));
}

TEST_P(ObjectStoreSuite, HistoryOfAnotherStoreObjectIsReadOn) {
  if (IsUsedAlone()) return;
  const std::unique_ptr<IObjectStore> other = OpenAgain();
  Write(Store(), {m_firstCommit});
  ExpectMoved(Store(), {{"master", Id(), m_firstCommit.id}});
  EXPECT_EQ(ReadHistory(*other, m_firstCommit.id, 5).size(), 1U);
  Write(Store(), {m_secondCommit});
  ExpectMoved(Store(), {{"master", m_firstCommit.id, m_secondCommit.id}});
  EXPECT_EQ(ReadHistory(*other, HeadsOf(*other).front().id, 5).size(), 2U);
}

}  // namespace
}  // namespace TalVcs::Kit
