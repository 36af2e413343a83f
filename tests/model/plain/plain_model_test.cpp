#include "objects.h"
#include "repository.h"

#include <gtest/gtest.h>

namespace {

using namespace Model;  // NOLINT(google-build-using-namespace): the subject of these tests

TEST(ModelItself, HashesThePublishedVectors) {
  EXPECT_EQ(Sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256Hex(std::string(1000, 'a')),
            "41edece42d63e8d9bf515a9ba6932e1c20cbc9f5a5d134645adb5db1b9737ea3");
}

TEST(ModelItself, ComputesIdsOfBlobsAndTrees) {
  Repository repository(std::make_unique<Storage>());
  const Blob hello("hello");
  Tree tree;
  tree.AddBlob(&repository, u"a", hello);

  EXPECT_EQ(hello.GetId(), "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60");
  EXPECT_EQ(Blob("").GetId(), "473a0f4c3be8a93681a267e3b1e9a7dcda1185436fe141f7749120a303721813");
  EXPECT_EQ(Tree().GetId(), "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321");
  EXPECT_EQ(tree.GetData().size(), 78U);
  EXPECT_EQ(tree.GetId(), "c91e041eb83553dc49f865126a6528e9a7d54180d7aeb53633121dff7d48cf66");
}

TEST(ModelItself, WritesTheTextOfAnEmptyCommit) {
  Commit commit;
  EXPECT_EQ(commit.GetData(), "tree \nauthor  <> 0 +0000\ncommitter  <> 0 +0000\n\n\n");
  commit.SetStamp({10000000000, -54000000000});
  EXPECT_EQ(commit.GetData(), "tree \nauthor  <> 1000 -0130\ncommitter  <> 1000 -0130\n\n\n");
}

TEST(ModelItself, TakesTextThroughUtf8AndBack) {
  const Text text = u"a\u00E9\uFF5E\U0001F600\xD800z\xDC00";
  EXPECT_EQ(EncodeUtf8(text), "a\xC3\xA9\xEF\xBD\x9E\xF0\x9F\x98\x80\xED\xA0\x80z\xED\xB0\x80");
  EXPECT_EQ(DecodeUtf8(EncodeUtf8(text)), text);
}

TEST(ModelItself, PurgesWhatNothingHolds) {
  Repository repository(std::make_unique<Storage>());
  Commit draft(&repository, false);
  draft.AddBlob(&repository, u"a/b", Blob("x"));
  Handle<Commit> held = repository.DoCommit(draft, {});
  draft = Commit();
  repository.RemoveBranch(u"master");
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetStorage()->trees.size(), 2U);

  held = {};
  repository.UpdateStorage();

  EXPECT_TRUE(repository.GetStorage()->commits.empty());
  EXPECT_TRUE(repository.GetStorage()->trees.empty());
  EXPECT_TRUE(repository.GetStorage()->blobs.empty());
}

}  // namespace
