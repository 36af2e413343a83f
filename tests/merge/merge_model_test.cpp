// Merges of random trees against the steps of a merge in their plainest form: one recursion over
// whole lists of differences. The trees hold names of both kinds at once, too, since such a tree
// can come out of a merge and go into the next one.

#include <talvcs/merge/three_way_merge.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/forest.h>
#include <tests/support/merging.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Name = TalStringT<WideChar>;
using Names = std::vector<Name>;

class PlainMerge {
 public:
  PlainMerge(IRepository& repository, const MergeTrees& trees, const Resolvers& resolvers)
      : m_repository(repository), m_whole(trees), m_resolvers(resolvers) {}

  cow_ptr<Tree> Run() { return Level(m_whole, {}).value_or(nullptr); }

 private:
  using Views = std::vector<TalStringViewT<WideChar>>;

  static bool Same(const cow_ptr<Object>& a, const cow_ptr<Object>& b) {
    return a && b ? a->GetId() == b->GetId() : !a && !b;
  }
  static cow_ptr<Object> ObjectAt(const cow_ptr<Tree>& tree, const Name& name) {
    return tree ? tree->GetDeepObject(name) : cow_ptr<Object>();
  }
  static bool Holds(const Names& names, const Name& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  }

  void Take(cow_ptr<Tree>& result, const cow_ptr<Tree>& source, const Name& name) {
    result.write()->RemoveObject(&m_repository, name);
    if (!source) return;
    if (const cow_ptr<Blob> blob = source->GetDeepBlob(name)) {
      result.write()->AddBlob(&m_repository, name, *blob);
    } else if (const cow_ptr<Tree> tree = source->GetDeepTree(name)) {
      result.write()->AddTree(&m_repository, name, *tree);
    }
  }

  // Settles what isn't in conflict; returns the names that are.
  Names Conflicts(const MergeTrees& trees, const Names& left, const Names& right, Names& same) {
    Names conflicts;
    for (const Name& name : left) {
      if (!Holds(right, name)) continue;
      const bool equal = Same(ObjectAt(trees.left, name), ObjectAt(trees.right, name));
      (equal ? same : conflicts).push_back(name);
    }
    return conflicts;
  }
  void Apply(cow_ptr<Tree>& result, const MergeTrees& trees, const Names& left, const Names& right,
             const Names& same) {
    for (const Name& name : same) Take(result, trees.left, name);
    for (const Name& name : right) {
      if (!Holds(left, name)) Take(result, trees.right, name);
    }
    for (const Name& name : left) {
      if (!Holds(right, name)) Take(result, trees.left, name);
    }
  }

  std::optional<cow_ptr<Tree>> Level(MergeTrees trees, const Views& path) {
    if (!trees.left && !trees.right) return cow_ptr<Tree>();
    if (trees.left && trees.right && trees.left->GetId() == trees.right->GetId()) {
      return trees.left;
    }
    switch (m_resolvers.treeResolver(path, m_whole)) {
      case TreeConflictChoice::Left:
        return trees.left;
      case TreeConflictChoice::Right:
        return trees.right;
      case TreeConflictChoice::Root:
        return trees.root;
      case TreeConflictChoice::Undecided:
        return {};
      default:
        break;
    }
    if (!trees.root) trees.root = Make<Tree>();
    cow_ptr<Tree> result = trees.root;
    const auto below = [&](const Name& name) {
      Views deeper = path;
      deeper.emplace_back(name);
      return deeper;
    };

    const Names leftBlobs = trees.root->GetLocalBlobDiffs(trees.left);
    const Names rightBlobs = trees.root->GetLocalBlobDiffs(trees.right);
    Names same;
    for (const Name& name : Conflicts(trees, leftBlobs, rightBlobs, same)) {
      switch (m_resolvers.blobResolver(below(name), m_whole)) {
        case ConflictChoice::Left:
          Take(result, trees.left, name);
          break;
        case ConflictChoice::Right:
          Take(result, trees.right, name);
          break;
        case ConflictChoice::Undecided:
          return {};
        default:
          break;
      }
    }
    Apply(result, trees, leftBlobs, rightBlobs, same);

    const Names leftTrees = trees.root->GetLocalTreeDiffs(trees.left);
    const Names rightTrees = trees.root->GetLocalTreeDiffs(trees.right);
    same.clear();
    const Names conflicts = Conflicts(trees, leftTrees, rightTrees, same);
    Apply(result, trees, leftTrees, rightTrees, same);
    for (const Name& name : conflicts) {
      const auto narrow = [&](const cow_ptr<Tree>& tree) {
        return tree ? tree->GetLocalTree(name) : tree;
      };
      const auto merged =
          Level({narrow(trees.left), narrow(trees.root), narrow(trees.right)}, below(name));
      if (!merged) return {};
      if (*merged) {
        result.write()->AddTree(&m_repository, name, **merged);
      } else {
        result.write()->RemoveObject(&m_repository, name);
      }
    }
    return result;
  }

  IRepository& m_repository;
  MergeTrees m_whole;
  Resolvers m_resolvers;
};

// Everything in a tree, what is hidden included.
std::string Shown(const cow_ptr<Tree>& tree) {
  if (!tree) return "(none)";
  std::string shown = "{";
  for (const Name& name : tree->GetLocalBlobPaths()) {
    shown += Ascii(name) + '=' + TextOf(tree->GetLocalBlob(name)) + ' ';
  }
  for (const Name& name : tree->GetLocalSubtreePaths()) {
    shown += Ascii(name) + Shown(tree->GetLocalTree(name)) + ' ';
  }
  return shown + '}';
}

void Edit(std::mt19937& random, IRepository& repository, Tree& tree) {
  std::string path(1, static_cast<char>('a' + Below(random, 3)));
  while (path.size() < 6 && Below(random, 2) == 0) {
    path += std::string("/") + static_cast<char>('a' + Below(random, 3));
  }
  if (Below(random, 4) == 0) {
    tree.RemoveObject(&repository, Wide(path));
  } else {
    // Without a removal first: a blob may come to hide a directory, and the other way round.
    tree.AddBlob(&repository, Wide(path), BlobOf(std::to_string(Below(random, 3))));
  }
}

cow_ptr<Tree> Edited(std::mt19937& random, IRepository& repository, const cow_ptr<Tree>& base,
                     int edits) {
  if (Below(random, 12) == 0) return nullptr;
  Tree tree = base ? *base : Tree();
  for (int i = 0; i < edits; ++i) Edit(random, repository, tree);
  return Make<Tree>(tree);
}

// Returns whether there was a result.
bool CheckOneMerge(unsigned seed) {
  std::mt19937 random(seed);
  Repository repository = NewRepository();
  const cow_ptr<Tree> root = Edited(random, repository, nullptr, Below(random, 12));
  const cow_ptr<Tree> left = Edited(random, repository, root, Below(random, 6));
  const cow_ptr<Tree> right = Edited(random, repository, root, Below(random, 6));
  const MergeTrees trees{left, root, right};
  // Answers that depend on the path, so that both merges get the same.
  std::vector<std::string> asked;
  const unsigned salt = random();
  const auto pick = [&](const std::string& path, unsigned choices) {
    asked.push_back(path);
    unsigned sum = salt;
    for (const char unit : path) sum = sum * 31 + static_cast<unsigned char>(unit);
    return sum >> 7 & 31 ? (sum >> 12) % choices : choices;
  };
  const Resolvers resolvers{
      [&](Path path, MergeTrees) { return static_cast<ConflictChoice>(pick(Join(path), 3)); },
      [&](Path path, MergeTrees) {
        const unsigned picked = pick(Join(path) + '/', 12);
        return static_cast<TreeConflictChoice>(picked < 9 ? 0 : picked - 8);
      }};
  Repository plainRepository = repository;

  const cow_ptr<Tree> merged = ThreeWayMerge(&repository, trees, resolvers);
  const std::vector<std::string> questions = std::exchange(asked, {});
  const cow_ptr<Tree> plain = PlainMerge(plainRepository, trees, resolvers).Run();

  EXPECT_EQ(Shown(merged), Shown(plain)) << Shown(root) << '\n'
                                         << Shown(left) << '\n'
                                         << Shown(right);
  EXPECT_EQ(IdOf(merged), IdOf(plain));
  EXPECT_EQ(questions, asked);
  return static_cast<bool>(merged);
}

TEST(MergeModel, AgreesOnRandomTrees) {
  int withResult = 0;
  for (unsigned seed = 0; seed < 3000 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    if (CheckOneMerge(seed)) ++withResult;
  }
  EXPECT_GT(withResult, 1500);
  EXPECT_LT(withResult, 2900);
}

}  // namespace
}  // namespace TalVcs::Testing
