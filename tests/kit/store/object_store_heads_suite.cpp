// What every object store does with heads, removals and several store objects.

#include <tests/kit/store/object_store_suite.h>
#include <tests/support/text.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Ascii;
using Testing::Wide;

using HeadList = std::vector<Head>;

/// Returns the ids of the heads.
std::vector<Id> IdsOf(std::span<const Head> heads) {
  std::vector<Id> ids;
  for (const Head& head : heads) ids.push_back(head.id);
  return ids;
}

TEST_P(ObjectStoreSuite, HeadsAreSortedByTheBytesOfTheirNames) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"b", Id(), m_one.id},
                        {"\xC3\xA4", Id(), m_one.id},
                        {"a/b", Id(), m_two.id},
                        {"B", Id(), m_one.id},
                        {"a", Id(), m_two.id},
                        {"a.b", Id(), m_one.id}});
  const HeadList expected = {{"B", m_one.id},   {"a", m_two.id}, {"a.b", m_one.id},
                             {"a/b", m_two.id}, {"b", m_one.id}, {"\xC3\xA4", m_one.id}};
  EXPECT_EQ(HeadsOf(Store()), expected);
  Reopen();
  EXPECT_EQ(HeadsOf(Store()), expected);
}

TEST_P(ObjectStoreSuite, AnyTextIsTheNameOfABranch) {
  // The last is the three-byte form of a lone surrogate.
  const std::vector<std::string> names = {"",
                                          std::string("\0", 1),
                                          std::string("a\0b", 3),
                                          "line\nend",
                                          " '\";--%",
                                          "../../etc",
                                          "/",
                                          "CON",
                                          std::string(3000, 'n'),
                                          "\xF0\x9F\x98\x80",
                                          "\xED\xA0\x80"};
  Write(Store(), {m_one});
  std::vector<HeadMove> moves;
  for (const std::string& name : names) moves.push_back({name, Id(), m_one.id});
  ExpectMoved(Store(), moves);
  Reopen();
  for (HeadMove& move : moves) std::swap(move.expected, move.desired);
  EXPECT_EQ(HeadsOf(Store()).size(), names.size());
  ExpectMoved(Store(), moves);
  EXPECT_EQ(HeadsOf(Store()), HeadList());
}

TEST_P(ObjectStoreSuite, HeadIsMadeMovedAndRemoved) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_one.id}}));
  ExpectMoved(Store(), {{"master", m_one.id, m_two.id}});
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_two.id}}));
  ExpectMoved(Store(), {{"master", m_two.id, m_two.id}});
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_two.id}}));
  ExpectMoved(Store(), {{"master", m_two.id, Id()}});
  EXPECT_EQ(HeadsOf(Store()), HeadList());
  ExpectMoved(Store(), {{"master", Id(), Id()}});
  EXPECT_EQ(HeadsOf(Store()), HeadList());
}

TEST_P(ObjectStoreSuite, SeveralHeadsMoveTogether) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"a", Id(), m_one.id}, {"b", Id(), m_one.id}, {"c", Id(), m_one.id}});
  ExpectMoved(Store(), {{"d", Id(), m_two.id}, {"a", m_one.id, m_two.id}, {"b", m_one.id, Id()}});
  Reopen();
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"a", m_two.id}, {"c", m_one.id}, {"d", m_two.id}}));
}

TEST_P(ObjectStoreSuite, ConflictMovesNothingAndTellsTheActualHeads) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"a", Id(), m_one.id}, {"b", Id(), m_one.id}});
  const HeadList before = HeadsOf(Store());
  const Status status = Move(
      Store(), {{"new", Id(), m_two.id}, {"b", m_two.id, m_three.id}, {"a", m_one.id, m_two.id}});
  ExpectFails(status, ErrorCode::Conflict);
  EXPECT_EQ(status.error().heads, (HeadList{{"new", Id()}, {"b", m_one.id}, {"a", m_one.id}}));
  EXPECT_EQ(status.error().subject, "b");
  EXPECT_EQ(HeadsOf(Store()), before);
}

TEST_P(ObjectStoreSuite, EachWrongExpectationIsAConflict) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  ExpectFails(Move(Store(), {{"master", Id(), m_two.id}}), ErrorCode::Conflict);
  ExpectFails(Move(Store(), {{"master", m_two.id, Id()}}), ErrorCode::Conflict);
  ExpectFails(Move(Store(), {{"master", Id(), Id()}}), ErrorCode::Conflict);
  ExpectFails(Move(Store(), {{"absent", m_one.id, m_two.id}}), ErrorCode::Conflict);
  ExpectFails(Move(Store(), {{"Master", m_one.id, m_two.id}}), ErrorCode::Conflict);
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_one.id}}));
}

TEST_P(ObjectStoreSuite, MoveToWhatIsNoIdIsRefused) {
  Write(Store(), {m_one});
  ExpectFails(Move(Store(), {{"a", Id(), m_one.id}, {"b", Id(), Id(Wide("none"))}}),
              ErrorCode::BadName);
  EXPECT_EQ(HeadsOf(Store()), HeadList());
}

TEST_P(ObjectStoreSuite, BranchThatComesTwiceIsRefused) {
  Write(Store(), {m_one, m_two});
  ExpectFails(Move(Store(), {{"a", Id(), m_one.id}, {"a", m_one.id, m_two.id}}),
              ErrorCode::BadName);
  EXPECT_EQ(HeadsOf(Store()), HeadList());
}

TEST_P(ObjectStoreSuite, UnmarkedObjectsAreRemovedAndCounted) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two, m_three});
  ExpectMoved(Store(), {{"master", Id(), m_two.id}});
  HeadList marked_from;
  const Result<RemovedObjects> removed =
      Store().RemoveUnmarked([&](std::span<const Head> heads) -> Result<std::vector<Id>> {
        marked_from.assign(heads.begin(), heads.end());
        return IdsOf(heads);
      });
  ASSERT_TRUE(removed.ok()) << Describe(removed.error());
  EXPECT_EQ(marked_from, (HeadList{{"master", m_two.id}}));
  EXPECT_EQ(removed->count, 2U);
  EXPECT_EQ(removed->sizeBytes, 22U);
  EXPECT_EQ(ListOf(Store()), std::vector<std::string>{Ascii(m_two.id)});
  EXPECT_EQ(HeadsOf(Store()), marked_from);
  EXPECT_EQ(ReadOne(Store(), m_one.id), "<NotFound>");
  EXPECT_EQ(Store().Missing({{m_one.id, m_two.id}}).value(), std::vector<Id>{m_one.id});
  Reopen();
  EXPECT_EQ(ListOf(Store()), std::vector<std::string>{Ascii(m_two.id)});
}

TEST_P(ObjectStoreSuite, MarkedIdsThatAreMissingOrDoubleDoNoHarm) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  const Result<RemovedObjects> removed =
      RemoveAllBut(Store(), {m_three.id, m_one.id, m_one.id, Id()});
  ASSERT_TRUE(removed.ok()) << Describe(removed.error());
  EXPECT_EQ(removed->count, 1U);
  EXPECT_EQ(ListOf(Store()), std::vector<std::string>{Ascii(m_one.id)});
}

TEST_P(ObjectStoreSuite, ErrorOfTheMarkRemovesNothing) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  Error cancelled;
  cancelled.code = ErrorCode::Cancelled;
  cancelled.message = "cancelled by the host";
  const Result<RemovedObjects> removed = Store().RemoveUnmarked(
      [&](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> { return cancelled; });
  ExpectFails(removed, ErrorCode::Cancelled);
  EXPECT_EQ(removed.error().message, "cancelled by the host");
  EXPECT_EQ(ListOf(Store()).size(), 2U);
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
}

TEST_P(ObjectStoreSuite, MarkReadsFromTheStore) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  std::string read;
  const Result<RemovedObjects> removed =
      Store().RemoveUnmarked([&](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
        read = ReadOne(Store(), m_one.id);
        return std::vector<Id>{m_one.id};
      });
  ASSERT_TRUE(removed.ok()) << Describe(removed.error());
  EXPECT_EQ(read, std::string("blob 3\0one", 10));
}

TEST_P(ObjectStoreSuite, RemovedObjectCanBeWrittenAgain) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"other", Id(), m_two.id}});
  ASSERT_TRUE(RemoveAllBut(Store(), {m_two.id}).ok());
  Write(Store(), {m_one});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  Reopen();
  EXPECT_EQ(ReadOne(Store(), m_one.id), std::string("blob 3\0one", 10));
}

TEST_P(ObjectStoreSuite, SaveIsBusyAfterObjectsWereRemovedSinceItLooked) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  EXPECT_TRUE(Store().Missing({{m_two.id}}).value().empty());
  ASSERT_TRUE(RemoveAllBut(Store(), {m_one.id}).ok());
  ExpectFails(Move(Store(), {{"other", Id(), m_two.id}}), ErrorCode::Busy);
  ExpectFails(Move(Store(), {{"other", Id(), m_two.id}}), ErrorCode::Busy);
  EXPECT_EQ(HeadsOf(Store()), (HeadList{{"master", m_one.id}}));
  EXPECT_EQ(Store().Missing({{m_two.id}}).value(), std::vector<Id>{m_two.id});
  Write(Store(), {m_two});
  ExpectMoved(Store(), {{"other", Id(), m_two.id}});
}

TEST_P(ObjectStoreSuite, SaveIsBusyAfterObjectsWereRemovedSinceItWrote) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one});
  ASSERT_TRUE(RemoveAllBut(Store(), {}).ok());
  ExpectFails(Move(Store(), {{"master", Id(), m_one.id}}), ErrorCode::Busy);
  Write(Store(), {m_one});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
}

TEST_P(ObjectStoreSuite, WriteAfterARemovalDoesNotHideIt) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  ASSERT_TRUE(RemoveAllBut(Store(), {}).ok());
  Status moved = Store().Write({{m_one}});
  if (moved) moved = Move(Store(), {{"master", Id(), m_two.id}});
  ExpectFails(moved, ErrorCode::Busy);
  // A store may ask for the first one again: what it names may have been removed before.
  std::vector<Id> missing = Store().Missing({{m_one.id, m_two.id}}).value();
  std::erase(missing, m_one.id);
  EXPECT_EQ(missing, std::vector<Id>{m_two.id});
}

TEST_P(ObjectStoreSuite, RemovalBeforeTheFirstLookDoesNotDisturb) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  ASSERT_TRUE(RemoveAllBut(Store(), {m_one.id}).ok());
  ExpectMoved(Store(), {{"copy", Id(), m_one.id}});
}

TEST_P(ObjectStoreSuite, ConflictKeepsWhatTheSaveReliesOn) {
  if (RefusesRemovals()) return;
  Write(Store(), {m_one});
  ExpectFails(Move(Store(), {{"master", m_two.id, m_one.id}}), ErrorCode::Conflict);
  ASSERT_TRUE(RemoveAllBut(Store(), {}).ok());
  ExpectFails(Move(Store(), {{"master", Id(), m_one.id}}), ErrorCode::Busy);
}

}  // namespace
}  // namespace TalVcs::Kit
