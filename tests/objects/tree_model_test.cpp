#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/entry_list.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Names = std::vector<std::string>;

/// A directory of blobs and one of a plain map, edited alike.
class TwinDirectories {
 public:
  void Put(const std::string& name, const std::string& bytes) {
    const auto blob = m_tree.AddBlob(&m_repository, Wide(name), BlobOf(bytes));
    m_model[name] = {false, IdOf(*blob)};
  }
  bool Remove(const std::string& name) {
    const bool expected = m_model.erase(name) != 0;
    return m_tree.RemoveObject(&m_repository, Wide(name)) == expected;
  }

  const Tree& GetTree() const { return m_tree; }

  void ExpectAlike() const {
    ASSERT_EQ(Bytes(m_tree.GetData()), EncodeEntryList(m_model));
    ASSERT_EQ(m_tree.GetLocalObjectCount(), m_model.size());
    ASSERT_EQ(m_tree.IsEmpty(), m_model.empty());
  }
  void ExpectSameNames() const {
    Names names;
    for (const auto& [name, entry] : m_model) names.push_back(name);
    ASSERT_EQ(Ascii(m_tree.GetLocalBlobPaths()), names);
    for (const auto& [name, entry] : m_model) {
      ASSERT_EQ(IdOf(*m_tree.GetLocalBlob(Wide(name))), entry.id);
    }
  }

 private:
  RecordingRepository m_repository;
  Tree m_tree;
  ModelDirectory m_model;
};

std::vector<int> Shuffled(int count, unsigned seed) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), 0);
  std::shuffle(numbers.begin(), numbers.end(), std::mt19937(seed));
  return numbers;
}

TEST(TreeModel, ManyEntriesComeAndGoInRandomOrder) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    TwinDirectories twins;
    for (const int number : Shuffled(400, seed)) {
      twins.Put("n" + std::to_string(number), std::to_string(number % 50));
      twins.ExpectAlike();
    }
    twins.ExpectSameNames();
    for (const int number : Shuffled(400, seed + 100)) {
      ASSERT_TRUE(twins.Remove("n" + std::to_string(number)));
      twins.ExpectAlike();
    }
    EXPECT_TRUE(twins.GetTree().IsEmpty());
  }
}

TEST(TreeModel, OrderOfInsertionDoesNotMatter) {
  TwinDirectories ascending;
  TwinDirectories descending;
  for (int number = 0; number < 300; ++number) {
    ascending.Put(std::to_string(1000 + number), "x");
    descending.Put(std::to_string(1299 - number), "x");
  }
  ascending.ExpectAlike();
  descending.ExpectAlike();
  EXPECT_EQ(IdOf(ascending.GetTree()),
            "62f040f1b3a1a02c29b17479ea57adb83e1ba848c851983bae2400c1deb583b3");
  EXPECT_EQ(IdOf(descending.GetTree()), IdOf(ascending.GetTree()));
}

TEST(TreeModel, MixedEditsOfFewNamesAgree) {
  std::mt19937 random(7);
  TwinDirectories twins;
  for (int step = 0; step < 5000; ++step) {
    const std::string name(1, static_cast<char>('a' + random() % 26));
    if (random() % 2 == 0) {
      twins.Put(name, std::to_string(random() % 3));
    } else {
      ASSERT_TRUE(twins.Remove(name));
    }
    twins.ExpectAlike();
  }
  twins.ExpectSameNames();
}

TEST(TreeModel, CopiesKeepTheirStateWhileTheTreeIsEdited) {
  std::mt19937 random(11);
  TwinDirectories twins;
  std::vector<std::pair<Tree, std::string>> kept;
  for (int step = 0; step < 1000; ++step) {
    const std::string name = std::to_string(random() % 60);
    if (random() % 3 != 0) {
      twins.Put(name, std::to_string(random() % 5));
    } else {
      ASSERT_TRUE(twins.Remove(name));
    }
    if (step % 20 == 0) kept.emplace_back(twins.GetTree(), Bytes(twins.GetTree().GetData()));
  }
  for (const auto& [tree, bytes] : kept) EXPECT_EQ(Bytes(tree.GetData()), bytes);
}

/// What stands in both tables of one name.
struct NameState {
  std::string blob;  // empty for none
  bool tree = false;
};

// Blobs and subtrees under few names, so that many stand in both tables.
TEST(TreeModel, BothTablesAgreeWithTwoMaps) {
  RecordingRepository repository;
  const Tree subtree = TreeOf(&repository, {{"x", "hello"}});
  const std::string subtree_id = IdOf(subtree);
  std::mt19937 random(3);
  Tree tree;
  std::map<std::string, NameState> model;
  for (int step = 0; step < 4000; ++step) {
    const std::string name = std::to_string(10 + random() % 40);
    switch (random() % 5) {
      case 0:
      case 1:
        model[name].blob = IdOf(*tree.AddBlob(&repository, Wide(name), BlobOf(name)));
        break;
      case 2:
      case 3:
        tree.AddTree(&repository, Wide(name), subtree);
        model[name].tree = true;
        break;
      default:
        ASSERT_EQ(tree.RemoveObject(&repository, Wide(name)), model.erase(name) != 0);
    }
    ModelDirectory visible;
    Names blobs;
    Names trees;
    for (const auto& [key, state] : model) {
      visible[key] = {state.blob.empty(), state.blob.empty() ? subtree_id : state.blob};
      if (!state.blob.empty()) blobs.push_back(key);
      if (state.tree) trees.push_back(key);
    }
    ASSERT_EQ(Bytes(tree.GetData()), EncodeEntryList(visible)) << step;
    ASSERT_EQ(tree.GetLocalObjectCount(), blobs.size() + trees.size());
    ASSERT_EQ(tree.GetLocalBlobCount(), blobs.size());
    ASSERT_EQ(tree.GetDeepBlobCount(), blobs.size() + trees.size());
    if (step % 50 != 0) continue;
    ASSERT_EQ(Ascii(tree.GetLocalBlobPaths()), blobs);
    ASSERT_EQ(Ascii(tree.GetLocalSubtreePaths()), trees);
  }
}

TEST(TreeModel, DiffsOfRandomEditsAgreeWithTwoMaps) {
  RecordingRepository repository;
  std::mt19937 random(5);
  cow_ptr<Tree> tree = Make<Tree>();
  std::map<std::string, std::string> files;
  for (int round = 0; round < 60; ++round) {
    const cow_ptr<Tree> before = tree;
    const std::map<std::string, std::string> files_before = files;
    for (unsigned edits = random() % 30; edits > 0; --edits) {
      const std::string path =
          "d" + std::to_string(random() % 5) + "/" + std::to_string(random() % 40);
      if (random() % 3 == 0) {
        tree.write()->RemoveObject(&repository, Wide(path));
        files.erase(path);
      } else {
        files[path] = std::to_string(random() % 3);
        tree.write()->AddBlob(&repository, Wide(path), BlobOf(files[path]));
      }
    }
    std::map<std::string, std::string> all = files;
    all.insert(files_before.begin(), files_before.end());
    Names expected;
    for (const auto& [path, bytes] : all) {
      const auto was = files_before.find(path);
      const auto is = files.find(path);
      const bool same = was != files_before.end() && is != files.end() && was->second == is->second;
      if (!same) expected.push_back(path);
    }
    ASSERT_EQ(Ascii(tree->GetDeepBlobDiffs(before)), expected);
    ASSERT_EQ(Ascii(before->GetDeepBlobDiffs(tree)), expected);
    ASSERT_EQ(tree->GetDeepBlobCount(), files.size());
  }
}

}  // namespace
}  // namespace TalVcs::Testing
