#include <talvcs/objects/commit.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// A commit with all fields set, over a repository of its own.
class CommitState : public ::testing::Test {
 protected:
  CommitState() {
    Commit commit(m_parent, false);
    commit.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
    commit.SetAuthorName(TAL_WIDE("name"));
    commit.SetAuthorEmail(TAL_WIDE("mail"));
    commit.SetDescription(TAL_WIDE("text"));
    commit.SetCommitTime(Time::FromTimeT(1000));
    commit.SetCommitTimezoneBias(TimeDelta{36'000'000'000});
    m_head = Make<Commit>(commit);
  }

  static void ExpectFieldsOfHead(const Commit& commit) {
    EXPECT_EQ(Ascii(commit.GetAuthorName()), "name");
    EXPECT_EQ(Ascii(commit.GetAuthorEmail()), "mail");
    EXPECT_EQ(Ascii(commit.GetDesciption()), "text");
    EXPECT_EQ(commit.GetCommitTime(), Time::FromTimeT(1000));
    EXPECT_EQ(commit.GetCommitTimezoneBias(), TimeDelta{36'000'000'000});
  }

  RecordingRepository m_repository;
  cow_ptr<Commit> m_parent = Make<Commit>();
  cow_ptr<Commit> m_head;
};

TEST_F(CommitState, DefaultCommitIsEmpty) {
  const Commit commit;
  EXPECT_TRUE(commit.GetTree() == nullptr);
  EXPECT_TRUE(commit.GetParent() == nullptr);
  EXPECT_TRUE(commit.GetDesciption().IsEmpty());
  EXPECT_TRUE(commit.GetAuthorName().IsEmpty());
  EXPECT_TRUE(commit.GetAuthorEmail().IsEmpty());
  EXPECT_EQ(commit.GetCommitTime(), Time());
  EXPECT_EQ(commit.GetCommitTimezoneBias(), TimeDelta());
  EXPECT_FALSE(commit.IsAmend());
}

TEST_F(CommitState, WithoutRepositoryHasAnEmptyTreeHandle) {
  const Commit commit(nullptr, false);
  EXPECT_TRUE(commit.GetParent() == nullptr);
  ASSERT_TRUE(commit.GetTree() != nullptr);
  EXPECT_TRUE(commit.GetTree()->GetRoot() == nullptr);
  EXPECT_TRUE(commit.GetBlob(TAL_WIDE("a")) == nullptr);
  EXPECT_TRUE(commit.GetTree(TAL_WIDE("a")) == nullptr);
}

TEST_F(CommitState, FollowsTheHeadOfTheRepository) {
  m_repository.SetHead(m_head);
  const Commit commit(&m_repository, false);
  EXPECT_TRUE(commit.GetParent() == m_head);
  EXPECT_TRUE(commit.GetTree() == m_head->GetTree());
}

TEST_F(CommitState, UsesTheHeadAtTheTimeOfConstruction) {
  const Commit commit(&m_repository, false);
  m_repository.SetHead(m_head);
  EXPECT_TRUE(commit.GetParent() == nullptr);
}

TEST_F(CommitState, FollowingCommitHasNoTexts) {
  const Commit commit(m_head, false);
  EXPECT_TRUE(commit.GetParent() == m_head);
  EXPECT_TRUE(commit.GetTree() == m_head->GetTree());
  EXPECT_TRUE(commit.GetAuthorName().IsEmpty());
  EXPECT_TRUE(commit.GetAuthorEmail().IsEmpty());
  EXPECT_TRUE(commit.GetDesciption().IsEmpty());
  EXPECT_EQ(commit.GetCommitTime(), Time());
  EXPECT_FALSE(commit.IsAmend());
}

TEST_F(CommitState, AmendCopiesTextsAndParentButNotTheTime) {
  const Commit commit(m_head, true);
  EXPECT_TRUE(commit.IsAmend());
  EXPECT_TRUE(commit.GetParent() == m_parent);
  EXPECT_TRUE(commit.GetTree() == m_head->GetTree());
  EXPECT_EQ(Ascii(commit.GetAuthorName()), "name");
  EXPECT_EQ(Ascii(commit.GetAuthorEmail()), "mail");
  EXPECT_EQ(Ascii(commit.GetDesciption()), "text");
  EXPECT_EQ(commit.GetCommitTime(), Time());
  EXPECT_EQ(commit.GetCommitTimezoneBias(), TimeDelta());
}

TEST_F(CommitState, AmendOfAFirstCommitHasNoParent) {
  const auto root = Make<Commit>();
  const Commit commit(root, true);
  EXPECT_TRUE(commit.GetParent() == nullptr);
  // The head never had a handle on a tree, so the new commit gets one.
  ASSERT_TRUE(commit.GetTree() != nullptr);
  EXPECT_TRUE(commit.GetTree()->GetRoot() == nullptr);
}

TEST_F(CommitState, AmendWithoutHeadHasTheAmendFlag) {
  const Commit commit(cow_ptr<Commit>(), true);
  EXPECT_TRUE(commit.IsAmend());
  EXPECT_TRUE(commit.GetTree() != nullptr);
  EXPECT_TRUE(commit.GetParent() == nullptr);
}

TEST_F(CommitState, FollowingCommitHoldsTheHeadOnce) {
  const long before = m_head.use_count();
  const cow_ptr<CommitTree> tree = m_head->GetTree();
  const long tree_before = tree.use_count();
  const Commit commit(m_head, false);
  EXPECT_EQ(m_head.use_count(), before + 1);
  EXPECT_EQ(tree.use_count(), tree_before + 1);
}

TEST_F(CommitState, EachSetterDropsTheCachedIdAndText) {
  Commit commit;
  const std::string first = IdOf(commit);
  std::vector<std::string> ids{first};
  const auto note = [&] { ids.push_back(IdOf(commit)); };
  commit.SetAuthorName(TAL_WIDE("n")), note();
  commit.SetAuthorEmail(TAL_WIDE("e")), note();
  commit.SetDescription(TAL_WIDE("d")), note();
  commit.SetCommitTime(Time::FromTimeT(7)), note();
  commit.SetCommitTimezoneBias(TimeDelta{-36'000'000'000}), note();
  commit.SetParent(m_parent), note();
  EXPECT_EQ(ids, (std::vector<std::string>{
                     "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85",
                     "97e64c5050bd7ef4c94b9db72268ec2ffc7fd1aa400b01660ea9019960439f25",
                     "a4fb750198dbb57bd3444f12c0450244b6554f89443784e4a8480ef4d89e9411",
                     "8a765f3d8bc72d23d4e6e434fd85292c6d7bfd63151b5fd975e0f56db83436d9",
                     "649e4dc52e307f93f93eed6ea13afc0afd61ccff809c67a6aba9d0ed7745e3fd",
                     "dd3f8eb34ea898f4061fec81d87b1c4d857c57975ed1f38a3f4e411a8dacab58",
                     "e49ea6d79dc0d01f2a5be384ddb918115bb9ce5f28cbf9777f84f37676f3532b"}));
}

TEST_F(CommitState, SetParentAcceptsNull) {
  Commit commit(m_parent, false);
  commit.GetId();
  commit.SetParent(nullptr);
  EXPECT_TRUE(commit.GetParent() == nullptr);
  EXPECT_EQ(IdOf(commit), "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85");
  EXPECT_EQ(m_parent.use_count(), 2);  // this fixture and its head
}

TEST_F(CommitState, CopyHasFieldsAndCachesAndSharesTreeAndParent) {
  const Id id = m_head->GetId();
  const cow_ptr<CommitTree> tree = m_head->GetTree();
  const long tree_count = tree.use_count();
  const Commit copy(*m_head);
  ExpectFieldsOfHead(copy);
  EXPECT_EQ(copy.GetId().View().text, id.View().text);
  EXPECT_TRUE(copy.GetTree() == tree);
  EXPECT_TRUE(copy.GetParent() == m_parent);
  EXPECT_EQ(tree.use_count(), tree_count + 1);
  EXPECT_EQ(m_parent.use_count(), 3);
}

TEST_F(CommitState, CopyKeepsTheAmendFlag) {
  const Commit amend(m_head, true);
  const Commit copy(amend);
  EXPECT_TRUE(copy.IsAmend());
  Commit assigned;
  assigned = amend;
  EXPECT_TRUE(assigned.IsAmend());
}

TEST_F(CommitState, EditOfACopyDoesNotChangeTheSource) {
  const std::string id = IdOf(*m_head);
  Commit copy(*m_head);
  copy.SetDescription(TAL_WIDE("other"));
  copy.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_EQ(IdOf(*m_head), id);
  EXPECT_TRUE(m_head->GetBlob(TAL_WIDE("b")) == nullptr);
  ExpectFieldsOfHead(*m_head);
}

TEST_F(CommitState, AssignmentReplacesAllFieldsAndCaches) {
  Commit target;
  target.SetDescription(TAL_WIDE("old"));
  target.GetPackedData();
  target.GetId();
  target = *m_head;
  ExpectFieldsOfHead(target);
  EXPECT_EQ(IdOf(target), IdOf(*m_head));
  EXPECT_EQ(Bytes(target.GetData()), Bytes(m_head->GetData()));
}

TEST_F(CommitState, SelfAssignmentKeepsEverything) {
  Commit commit(*m_head);
  Commit& self = commit;
  commit = self;
  ExpectFieldsOfHead(commit);
  EXPECT_EQ(IdOf(commit), IdOf(*m_head));
}

TEST_F(CommitState, MovedFromCommitKeepsOnlyItsId) {
  Commit source(*m_head);
  const std::string id = IdOf(source);
  const Commit target(std::move(source));
  ExpectFieldsOfHead(target);
  EXPECT_EQ(IdOf(target), id);
  EXPECT_EQ(IdOf(source), id);  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(source.GetTree() == nullptr);
  EXPECT_TRUE(source.GetParent() == nullptr);
}

TEST_F(CommitState, MoveAssignmentDropsTheTargetsCaches) {
  Commit target;
  target.GetPackedData();
  const std::string old = IdOf(target);
  Commit source(*m_head);
  source.SetDescription(TAL_WIDE("moved"));  // no cache is left
  target = std::move(source);
  EXPECT_EQ(Ascii(target.GetDesciption()), "moved");
  EXPECT_NE(Bytes(target.GetData()).find("\nmoved\n"), std::string::npos);
  EXPECT_NE(IdOf(target), old);
  EXPECT_NE(IdOf(target), IdOf(*m_head));
  EXPECT_TRUE(target.GetTree() == m_head->GetTree());
  EXPECT_TRUE(target.GetParent() == m_head->GetParent());
}

TEST_F(CommitState, IsAnObjectLikeAnyOther) {
  const cow_ptr<Object> object = m_head;
  EXPECT_TRUE(*object == *m_head);
  EXPECT_TRUE(*object != Blob());
  EXPECT_TRUE(Commit().ToString() == Wide("commit 49\\0tree \nauthor  <> 0 +0000\n"
                                          "committer  <> 0 +0000\n\n\n"));
}

// The parent is held by the commit alone, which lets go of it while it takes its fields over.
TEST_F(CommitState, AssignmentFromItsOwnParentCopiesTheFields) {
  Commit child;
  child.SetParent(Make<Commit>(*m_head));
  const Commit* const parent = child.GetParent().get();
  child = *parent;
  ExpectFieldsOfHead(child);
  EXPECT_TRUE(child.GetParent() == m_parent);
}

}  // namespace
}  // namespace TalVcs::Testing
