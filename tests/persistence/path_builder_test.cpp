#include <talvcs/persistence/path_builder.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <string>

namespace TalVcs::Testing {
namespace {

PathBuilder At(const char* root) { return PathBuilder(Wide(root)); }

TEST(PathBuilder, RootGivesTheLayoutBelowIt) {
  const PathBuilder paths = At("doc");
  EXPECT_EQ(Ascii(paths.GetStoragePath()), "doc/.vcs");
  EXPECT_EQ(Ascii(paths.GetObjectsPath()), "doc/.vcs/objects");
  EXPECT_EQ(Ascii(paths.GetBranchesPath()), "doc/.vcs/refs/heads");
}

TEST(PathBuilder, RootWithASeparatorAtItsEndGivesTheSame) {
  const PathBuilder paths = At("doc/");
  EXPECT_EQ(Ascii(paths.GetStoragePath()), "doc/.vcs");
  EXPECT_EQ(Ascii(paths.GetObjectsPath()), "doc/.vcs/objects");
  EXPECT_EQ(Ascii(paths.GetBranchesPath()), "doc/.vcs/refs/heads");
}

TEST(PathBuilder, EmptyRootGivesPathsThatBeginWithASeparator) {
  EXPECT_EQ(Ascii(At("").GetStoragePath()), "/.vcs");
  EXPECT_EQ(Ascii(At("/").GetStoragePath()), "/.vcs");
}

TEST(PathBuilder, BackslashIsAnOrdinaryCharacter) {
  EXPECT_EQ(Ascii(At("doc\\").GetStoragePath()), "doc\\u005C/.vcs");
}

TEST(PathBuilder, ObjectIsInTheDirectoryOfItsFirstTwoCharacters) {
  const std::string id = "ab" + std::string(62, 'c');
  const std::string path = "doc/.vcs/objects/ab/" + std::string(62, 'c');
  EXPECT_EQ(Ascii(At("doc").GetObjectW(Wide(id))), path);
  EXPECT_EQ(Ascii(At("doc").GetObjectW(Id(Wide(id)))), path);
}

TEST(PathBuilder, AcceptsTextThatIsNotAnId) {
  EXPECT_EQ(Ascii(At("doc").GetObjectW(Wide("xyz"))), "doc/.vcs/objects/xy/z");
  EXPECT_EQ(Ascii(At("doc").GetObjectW(Wide("ab\n"))), "doc/.vcs/objects/ab/\\u000A");
}

TEST(PathBuilder, BranchLiesUnderItsName) {
  EXPECT_EQ(Ascii(At("doc").GetBranch(Wide("master"))), "doc/.vcs/refs/heads/master");
}

TEST(PathBuilder, BranchNameWithASeparatorGivesADeeperPath) {
  EXPECT_EQ(Ascii(At("doc").GetBranch(Wide("a/b"))), "doc/.vcs/refs/heads/a/b");
}

TEST(PathBuilder, StaticFunctionsAppendToTheirArgument) {
  EXPECT_EQ(Ascii(PathBuilder::GetObjectsPath(Wide("x/"))), "x/objects");
  EXPECT_EQ(Ascii(PathBuilder::GetBranchesPath(Wide("x"))), "x/refs/heads");
}

TEST(PathBuilder, CopyIsAPlainValue) {
  PathBuilder paths = At("doc");
  paths = At("other");
  const PathBuilder copy = paths;
  EXPECT_EQ(Ascii(copy.GetBranch(Wide("b"))), "other/.vcs/refs/heads/b");
}

}  // namespace
}  // namespace TalVcs::Testing
