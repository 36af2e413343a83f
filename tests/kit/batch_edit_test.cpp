#include <gtest/gtest.h>
#include <kit/batch_edit.h>
#include <tests/kit/saved_states.h>

#include <optional>
#include <ostream>
#include <random>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// One edit in a form that can be made one by one and in a batch.
struct Step {
  enum class Kind { Blob, Tree, Object, Copy, Remove } kind;
  std::string path;
  std::string text;  // of the blob, or of the blobs in the tree; an even number copies a blob
};

// GoogleTest would print the bytes, those after the members too.
void PrintTo(const Step& step, std::ostream* output) {
  *output << static_cast<int>(step.kind) << ' ' << step.path << ' ' << step.text;
}

Tree SmallTree(Repository& repository, const std::string& text) {
  if (text.empty()) return Tree();
  return TreeOf(&repository, {{"in/x", text}, {"y", text + "2"}});
}

Id KnownId(Repository& repository, const std::string& text) {
  if (text == "unknown") return Id(Wide(std::string(64, '0')));
  return repository.SyncWithStorage(SharedBlob(text))->GetId();
}

/// Returns a tree from which a step copies a blob or a folder.
Tree SourceOf(Repository& repository, const Step& step) {
  const bool is_blob = step.text.back() % 2 == 0;
  Tree source;
  source.AddBlob(&repository, Wide(is_blob ? step.path : step.path + "/in"), BlobOf(step.text));
  return source;
}

void Append(BatchEdit& batch, Repository& repository, const Step& step) {
  const WideString path = Wide(step.path);
  switch (step.kind) {
    case Step::Kind::Blob:
      return batch.AddBlob(path, BlobOf(step.text));
    case Step::Kind::Tree:
      return batch.AddTree(path, SmallTree(repository, step.text));
    case Step::Kind::Object:
      return batch.AddObject(path, KnownId(repository, step.text));
    case Step::Kind::Copy:
      return batch.CopyObject(path, SourceOf(repository, step));
    case Step::Kind::Remove:
      return batch.RemoveObject(path);
  }
}

bool MakeAlone(Tree& tree, Repository& repository, const Step& step) {
  const WideString path = Wide(step.path);
  switch (step.kind) {
    case Step::Kind::Blob:
      return tree.AddBlob(&repository, path, BlobOf(step.text)) != nullptr;
    case Step::Kind::Tree:
      return tree.AddTree(&repository, path, SmallTree(repository, step.text)) != nullptr;
    case Step::Kind::Object:
      return tree.AddObject(&repository, path, KnownId(repository, step.text)) != nullptr;
    case Step::Kind::Copy: {
      const std::optional<Id> id = SourceOf(repository, step).GetIdByPath(path);
      return id && tree.AddObject(&repository, path, *id) != nullptr;
    }
    case Step::Kind::Remove:
      return tree.RemoveObject(&repository, path);
  }
  return false;
}

/// All entries of a tree and the trees below, with what a blob hides.
std::string Listing(const Tree& tree, const std::string& indent = {}) {
  std::string text;
  for (const WideString& name : tree.GetLocalBlobPaths()) {
    text += indent + Ascii(name) + " = " + Bytes(tree.GetLocalBlob(name)->GetData()) + "\n";
  }
  for (const WideString& name : tree.GetLocalSubtreePaths()) {
    text += indent + Ascii(name) + "/\n" + Listing(*tree.GetLocalTree(name), indent + "  ");
  }
  return text;
}

/// Makes the steps on `start` both ways, and expects the same. What a blob hides may differ: it is
/// no part of the id.
void ExpectSameBothWays(const Tree& start, Repository& repository, const std::vector<Step>& steps) {
  Tree alone = start;
  Tree together = start;
  BatchEdit batch;
  std::size_t done = 0;
  for (const Step& step : steps) {
    Append(batch, repository, step);
    if (MakeAlone(alone, repository, step)) ++done;
  }
  Repository other(repository);
  EXPECT_EQ(batch.ApplyTo(&other, together), done);
  EXPECT_EQ(IdOf(together), IdOf(alone)) << Listing(together) << "instead of\n" << Listing(alone);
}

using Steps = std::vector<Step>;

class BatchEditCases : public testing::TestWithParam<Steps> {};

TEST_P(BatchEditCases, HaveTheSameEffectAsOneByOne) {
  Repository repository = NewRepository();
  const Tree start =
      TreeOf(&repository, {{"f", "1"}, {"d/f", "2"}, {"d/e/g", "3"}, {"d/e/h", "4"}});
  ExpectSameBothWays(Tree(), repository, GetParam());
  ExpectSameBothWays(start, repository, GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    All, BatchEditCases,
    testing::Values(Steps{}, Steps{{Step::Kind::Blob, "a", "1"}},
                    Steps{{Step::Kind::Blob, "", "1"}, {Step::Kind::Remove, "", ""}},
                    Steps{{Step::Kind::Blob, "//", "1"}, {Step::Kind::Blob, "/d//e/", "1"}},
                    // A path that runs through a blob, and a blob in place of a directory.
                    Steps{{Step::Kind::Blob, "f/below", "1"}}, Steps{{Step::Kind::Blob, "d", "1"}},
                    Steps{{Step::Kind::Blob, "d", "1"}, {Step::Kind::Blob, "d/new", "2"}},
                    Steps{{Step::Kind::Blob, "d", "1"},
                          {Step::Kind::Remove, "d/e", ""},
                          {Step::Kind::Remove, "d/f", ""}},
                    Steps{{Step::Kind::Blob, "f/b", "1"}, {Step::Kind::Remove, "f/b", ""}},
                    Steps{{Step::Kind::Blob, "f/b", "1"},
                          {Step::Kind::Remove, "f", ""},
                          {Step::Kind::Blob, "f/c", "2"}},
                    // The same path added and removed.
                    Steps{{Step::Kind::Blob, "x/y/z", "1"}, {Step::Kind::Remove, "x/y/z", ""}},
                    Steps{{Step::Kind::Blob, "x/y/z", "1"},
                          {Step::Kind::Remove, "x", ""},
                          {Step::Kind::Blob, "x/w", "2"}},
                    Steps{{Step::Kind::Remove, "d/e", ""}, {Step::Kind::Blob, "d/e/g", "5"}},
                    Steps{{Step::Kind::Blob, "d/e/k", "1"},
                          {Step::Kind::Remove, "d/e", ""},
                          {Step::Kind::Remove, "d/e/k", ""}},
                    // Directories that are left empty.
                    Steps{{Step::Kind::Remove, "d/e/g", ""}, {Step::Kind::Remove, "d/e/h", ""}},
                    Steps{{Step::Kind::Remove, "d/e/g", ""},
                          {Step::Kind::Remove, "d/e/h", ""},
                          {Step::Kind::Remove, "d/f", ""}},
                    Steps{{Step::Kind::Remove, "d/f", ""},
                          {Step::Kind::Blob, "d/e/x/y", ""},
                          {Step::Kind::Remove, "d/e/g", ""},
                          {Step::Kind::Remove, "d/e/h", ""},
                          {Step::Kind::Remove, "d/e/x", ""}},
                    // What isn't there.
                    Steps{{Step::Kind::Remove, "no", ""},
                          {Step::Kind::Remove, "d/no/x", ""},
                          {Step::Kind::Remove, "f/x", ""}},
                    Steps{{Step::Kind::Object, "d/o", "known"},
                          {Step::Kind::Object, "d/p", "unknown"}},
                    // A blob and a folder of another tree, and nothing.
                    Steps{{Step::Kind::Copy, "d/f", "2"}, {Step::Kind::Copy, "d/new", "2"}},
                    Steps{{Step::Kind::Copy, "d/e", "3"}, {Step::Kind::Blob, "d/e/g", "5"}},
                    Steps{{Step::Kind::Blob, "d/e/k", "1"}, {Step::Kind::Copy, "d/e", "3"}},
                    Steps{{Step::Kind::Blob, "d/e/k", "1"},
                          {Step::Kind::Copy, "d/e", "2"},
                          {Step::Kind::Blob, "d/e/g", "5"}},
                    Steps{{Step::Kind::Copy, "", "3"}},
                    // Trees, empty ones among them.
                    Steps{{Step::Kind::Tree, "d", "t"}, {Step::Kind::Blob, "d/in/z", "1"}},
                    Steps{{Step::Kind::Blob, "d/e/new", "1"},
                          {Step::Kind::Tree, "d/e", "t"},
                          {Step::Kind::Remove, "d/e/y", ""}},
                    Steps{{Step::Kind::Tree, "void", ""},
                          {Step::Kind::Tree, "v/void", ""},
                          {Step::Kind::Remove, "v/void", ""}},
                    Steps{{Step::Kind::Tree, "v/void", ""},
                          {Step::Kind::Blob, "v/void/x", "1"},
                          {Step::Kind::Remove, "v/void/x", ""}},
                    Steps{{Step::Kind::Tree, "f", "t"},
                          {Step::Kind::Remove, "f/in/x", ""},
                          {Step::Kind::Remove, "f/y", ""}}));

TEST(BatchEdit, RandomEditsHaveTheSameEffectAsOneByOne) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](int bound) {
    return std::uniform_int_distribution<>(0, bound - 1)(random);
  };
  for (int round = 0; round < 300; ++round) {
    Repository repository = NewRepository();
    Tree start;
    std::vector<Step> steps;
    const int before = below(10);
    for (int number = 0; number < 40; ++number) {
      Step step;
      step.kind = below(10) < 5 ? Step::Kind::Remove : static_cast<Step::Kind>(below(4));
      for (int level = below(4); level >= 0; --level)
        step.path += std::string(1, "abc"[below(3)]) + "/";
      step.text = step.kind == Step::Kind::Tree && below(4) == 0 ? "" : std::to_string(below(5));
      if (number < before) {
        MakeAlone(start, repository, step);
      } else {
        steps.push_back(step);
      }
    }
    ExpectSameBothWays(start, repository, steps);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(BatchEdit, CopyOfWhatIsNotThereFailsAndMakesNoDirectory) {
  Repository repository = NewRepository();
  Tree tree;
  BatchEdit batch;
  batch.CopyObject(Wide("d/e"), TreeOf(&repository, {{"d/f", "1"}}));
  batch.CopyObject(Wide("x/y"), Tree());
  batch.CopyObject(Wide("f"), TreeOf(&repository, {{"f", "2"}}));
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 1u);
  EXPECT_EQ(IdOf(tree), IdOf(TreeOf(&repository, {{"f", "2"}})));
  Tree without_repository;
  EXPECT_EQ(batch.ApplyTo(nullptr, without_repository), 0u);
}

// Only the one-by-one edits bring the directory into the storage under that id.
TEST(BatchEdit, AddObjectFindsADirectoryThatEarlierEditsMade) {
  Repository repository = NewRepository();
  Repository scratch = NewRepository();
  Tree expected;
  expected.AddBlob(&scratch, Wide("d/one"), BlobOf("1"));
  const Id between = expected.GetLocalTree(Wide("d"))->GetId();
  expected.AddBlob(&scratch, Wide("d/two"), BlobOf("2"));
  expected.AddObject(&scratch, Wide("copy"), between);
  BatchEdit batch;
  batch.AddBlob(Wide("d/one"), BlobOf("1"));
  batch.AddBlob(Wide("d/two"), BlobOf("2"));
  batch.AddObject(Wide("copy"), between);
  Tree tree;
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 3u);
  EXPECT_EQ(IdOf(tree), IdOf(expected));
}

TEST(BatchEdit, NoIntermediateTreeIsStored) {
  Repository repository = NewRepository();
  BatchEdit batch;
  for (int number = 0; number < 100; ++number) {
    batch.AddBlob(Wide("a/b" + std::to_string(number % 4) + "/" + std::to_string(number)),
                  BlobOf(std::to_string(number)));
  }
  Tree tree;
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 100u);
  EXPECT_EQ(repository.GetTreeCount(), 5u);
  EXPECT_EQ(repository.GetBlobCount(), 100u);
  EXPECT_EQ(tree.GetDeepBlobCount(), 100u);
}

TEST(BatchEdit, UntouchedTreesAreShared) {
  Repository repository = NewRepository();
  Tree tree = TreeOf(&repository, {{"a/f", "1"}, {"b/f", "2"}});
  const cow_ptr<Tree> before = tree.GetLocalTree(Wide("b"));
  BatchEdit batch;
  batch.AddBlob(Wide("a/g"), BlobOf("3"));
  batch.RemoveObject(Wide("b/missing"));
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 1u);
  EXPECT_EQ(tree.GetLocalTree(Wide("b")), before);
}

TEST(BatchEdit, CommitHasTheIdOfEditsOneByOne) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> base = CommitFile(repository, Wide("master"), "d/f", "1");
  Commit alone(base, false);
  Commit together(base, false);
  const Id before = together.GetId();
  BatchEdit batch;
  batch.AddBlob(Wide("d/g"), BlobOf("2"));
  batch.RemoveObject(Wide("d/f"));
  batch.AddTree(Wide("t"), SmallTree(repository, "3"));
  alone.AddBlob(&repository, Wide("d/g"), BlobOf("2"));
  alone.RemoveObject(&repository, Wide("d/f"));
  const cow_ptr<Tree> tree = repository.SyncWithStorage(Make<Tree>(SmallTree(repository, "3")));
  alone.AddObject(&repository, Wide("t"), tree->GetId());
  EXPECT_EQ(batch.ApplyTo(&repository, together), 3u);
  EXPECT_EQ(IdOf(together), IdOf(alone));
  EXPECT_NE(Ascii(before), IdOf(together));
  const cow_ptr<Tree> root = together.GetTree()->GetRoot();
  EXPECT_EQ(repository.GetTreeFromStorage(root->GetId()), root);
}

TEST(BatchEdit, CommitWithoutFilesHasAnEmptyRoot) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> base = CommitFile(repository, Wide("master"), "d/f", "1");
  Commit alone(base, false);
  Commit together(base, false);
  BatchEdit batch;
  batch.RemoveObject(Wide("d"));
  alone.RemoveObject(&repository, Wide("d"));
  EXPECT_EQ(batch.ApplyTo(&repository, together), 1u);
  EXPECT_EQ(IdOf(together), IdOf(alone));
}

TEST(BatchEdit, FailedEditsHaveTheSameEffectAsOneByOne) {
  Repository repository = NewRepository();
  Commit alone;
  Commit together;
  BatchEdit batch;
  batch.AddBlob(WideString(), BlobOf("1"));
  alone.AddBlob(&repository, WideString(), BlobOf("1"));
  EXPECT_EQ(batch.ApplyTo(&repository, together), 0u);
  EXPECT_EQ(together.GetTree()->GetRoot() != nullptr, alone.GetTree()->GetRoot() != nullptr);
  EXPECT_EQ(IdOf(together), IdOf(alone));
}

TEST(BatchEdit, WithoutRepositoryOnlyRemovalsTakeEffect) {
  Repository repository = NewRepository();
  Tree tree = TreeOf(&repository, {{"a", "1"}, {"b", "2"}});
  BatchEdit batch;
  batch.AddBlob(Wide("c"), BlobOf("3"));
  batch.AddObject(Wide("d"), BlobOf("1").GetId());
  batch.AddTree(Wide("e"), Tree());
  batch.RemoveObject(Wide("a"));
  EXPECT_EQ(batch.ApplyTo(nullptr, tree), 1u);
  EXPECT_EQ(Listing(tree), "b = 2\n");
  Commit commit;
  EXPECT_EQ(batch.ApplyTo(nullptr, commit), 0u);
}

TEST(BatchEdit, DeepPathNeedsNoRecursion) {
  Repository repository = NewRepository();
  std::string path;
  for (int level = 0; level < 10000; ++level) path += "d/";
  BatchEdit batch;
  batch.AddBlob(Wide(path + "f"), BlobOf("1"));
  batch.AddBlob(Wide(path + "g"), BlobOf("2"));
  batch.RemoveObject(Wide(path + "f"));
  Tree tree;
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 3u);
  EXPECT_EQ(tree.GetDeepBlobCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 10000u);
  batch.Clear();
  EXPECT_EQ(batch.GetCount(), 0u);
  batch.RemoveObject(Wide(path + "g"));
  EXPECT_EQ(batch.ApplyTo(&repository, tree), 1u);
  EXPECT_TRUE(tree.IsEmpty());
}

TEST(BatchEdit, CopyIsAListOfItsOwn) {
  BatchEdit batch;
  batch.RemoveObject(Wide("a"));
  BatchEdit copy = batch;
  copy.RemoveObject(Wide("b"));
  EXPECT_EQ(batch.GetCount(), 1u);
  EXPECT_EQ(copy.GetCount(), 2u);
  batch = std::move(copy);
  EXPECT_EQ(batch.GetCount(), 2u);
}

}  // namespace
}  // namespace TalVcs::Kit
