#include <gtest/gtest.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kBeforeId[] = "4133fe8e56a8a44b1323d5c8159c52298617cb9adbd8c1c84114d02004d9dbe3";
constexpr char kAfterId[] = "f0a8e16c6e2c1bc7c1f6f75ec8eb4f8e0b24a8f3452ac429a1e08883937956f3";

/// A tree of three levels and the repository that it lies in.
struct Workspace {
  std::unique_ptr<RecordingRepository> repository = std::make_unique<RecordingRepository>();
  Tree tree = TreeOf(repository.get(), {{"a", "x"}, {"d/e/f", "y"}});
  Tree copy = tree;
};

Workspace MakeWorkspace() { return {}; }

TEST(ObjectAllocationFailure, OfAddBlobLeavesTheTreeAsItWas) {
  const Blob blob = BlobOf("z");
  const int failures = ForEachFailingAllocation(
      MakeWorkspace,
      [&](Workspace& all) { all.tree.AddBlob(all.repository.get(), TAL_WIDE("d/e/g"), blob); },
      [](Workspace& all, bool threw) {
        EXPECT_EQ(IdOf(all.tree), threw ? kBeforeId : kAfterId);
        EXPECT_EQ(IdOf(all.copy), kBeforeId);
        all.tree.AddBlob(all.repository.get(), TAL_WIDE("d/e/g"), BlobOf("z"));
        EXPECT_EQ(IdOf(all.tree), kAfterId);
      });
  EXPECT_GT(failures, 10);
}

TEST(ObjectAllocationFailure, OfRemovalLeavesTheTreeAsItWas) {
  const int failures = ForEachFailingAllocation(
      [] {
        Workspace all;
        all.tree.AddBlob(all.repository.get(), TAL_WIDE("d/e/g"), BlobOf("z"));
        return all;
      },
      [](Workspace& all) { all.tree.RemoveObject(all.repository.get(), TAL_WIDE("d/e/g")); },
      [](Workspace& all, bool threw) {
        EXPECT_EQ(IdOf(all.tree), threw ? kAfterId : kBeforeId);
        all.tree.RemoveObject(all.repository.get(), TAL_WIDE("d/e/g"));
        EXPECT_EQ(IdOf(all.tree), kBeforeId);
      });
  EXPECT_GT(failures, 5);
}

TEST(ObjectAllocationFailure, OfAnEditOfALargeDirectoryLeavesItAsItWas) {
  const Blob blob = BlobOf("new");
  RecordingRepository repository;
  Tree large;
  for (int number = 0; number < 100; ++number) {
    large.AddBlob(&repository, Wide(std::to_string(number)), BlobOf("x"));
  }
  const std::string before = Bytes(large.GetData());
  const int failures = ForEachFailingAllocation(
      [&] { return Tree(large); },
      [&](Tree& tree) { tree.AddBlob(&repository, TAL_WIDE("55a"), blob); },
      [&](const Tree& tree, bool threw) {
        EXPECT_EQ(tree.GetLocalObjectCount(), threw ? 100U : 101U);
        EXPECT_EQ(Bytes(tree.GetData()) == before, threw);
        EXPECT_EQ(Bytes(large.GetData()), before);
      });
  EXPECT_GT(failures, 1);
}

TEST(ObjectAllocationFailure, OfHashingACommitIsForgottenByTheNextCall) {
  const int failures = ForEachFailingAllocation(
      [] {
        cow_ptr<Commit> tip;
        for (int number = 0; number < 3; ++number) {
          Commit next(tip, false);
          next.SetDescription(TAL_WIDE("a description of some length"));
          tip = Make<Commit>(next);
        }
        return tip;
      },
      [](cow_ptr<Commit>& tip) { tip->GetId(); },
      [](const cow_ptr<Commit>& tip, bool) {
        EXPECT_EQ(IdOf(*tip), "62abfde5f778738cd2769b4b7df9ccfb2f8f172ee9d39fae5d48cff425176b72");
      });
  EXPECT_GT(failures, 3);
}

TEST(ObjectAllocationFailure, OfPackingIsForgottenByTheNextCall) {
  const int failures = ForEachFailingAllocation(
      MakeWorkspace, [](Workspace& all) { all.tree.GetPackedData(); },
      [](Workspace& all, bool) {
        EXPECT_EQ(Bytes(all.tree.GetPackedData()),
                  std::string("tree 155\0", 9) + Bytes(all.tree.GetData()));
        EXPECT_EQ(IdOf(all.tree), kBeforeId);
      });
  EXPECT_GT(failures, 0);
}

TEST(ObjectAllocationFailure, OfListingsAndDiffsPassesThrough) {
  const cow_ptr<Tree> none;
  const int failures = ForEachFailingAllocation(
      MakeWorkspace,
      [&](Workspace& all) {
        all.tree.GetDeepBlobPaths();
        all.tree.GetLocalObjectPaths();
        all.tree.GetDeepBlobDiffs(none);
        all.tree.GetDeepBlobCount();
      },
      [](Workspace& all, bool) { EXPECT_EQ(IdOf(all.tree), kBeforeId); });
  EXPECT_GT(failures, 4);
}

TEST(ObjectAllocationFailure, OfWriteAccessLeavesTheHandleAsItWas) {
  const cow_ptr<Tree> shared = Make<Tree>();
  const int failures = ForEachFailingAllocation(
      [&] { return shared; }, [](cow_ptr<Tree>& tree) { tree.write(); },
      [&](const cow_ptr<Tree>& tree, bool threw) { EXPECT_EQ(tree == shared, threw); });
  EXPECT_EQ(failures, 1);
}

TEST(ObjectAllocationFailure, OfASharedOwnerDeletesTheObject) {
  class Noisy final : public Object {
   public:
    explicit Noisy(int& deaths) : m_deaths(deaths) {}
    ~Noisy() override { ++m_deaths; }
    TalStringT<char> GetHeader() const override { return "noisy"; }
    TalStringT<char> GetStoragePrefix() const override { return ""; }
    const Buffer& GetData() const override { return m_data; }

   private:
    int& m_deaths;
    Buffer m_data;
  };
  int deaths = 0;
  int made = 0;
  const int failures = ForEachFailingAllocation(
      [&] {
        ++made;
        return std::unique_ptr<Object>(std::make_unique<Noisy>(deaths));
      },
      [](std::unique_ptr<Object>& object) { dll_wrapped_shared(std::move(object)); },
      [&](std::unique_ptr<Object>&, bool) { EXPECT_EQ(deaths, made); });
  EXPECT_EQ(failures, 1);
}

TEST(ObjectAllocationFailure, OfCopiesOfIdsTreesAndHandlesCannotHappen) {
  struct Things {
    Workspace all;
    Id id;
    Id id_copy;
    Tree tree_copy;
    cow_ptr<Tree> handle = Make<Tree>();
    cow_ptr<Object> handle_copy;
  };
  const int failures = ForEachFailingAllocation(
      [] {
        Things things;
        things.id = things.all.tree.GetId();
        things.all.tree.GetPackedData();
        return things;
      },
      [](Things& things) {
        things.id_copy = things.id;
        things.tree_copy = things.all.tree;
        things.handle_copy = things.handle;
      },
      [](const Things& things, bool) { EXPECT_EQ(IdOf(things.tree_copy), kBeforeId); });
  EXPECT_EQ(failures, 0);
}

// The list of a directory's entries once leaked if its tree couldn't be allocated.
TEST(ObjectAllocationFailure, OfALoadLeavesNothingBehind) {
  const Id tree_id(Wide(std::string(64, 't')));
  const auto open = [](void* tree, const Id& id) {
    const std::string record = "100644 blob name" + std::string(1, '\0') + std::string(64, 'b');
    const bool is_tree = id == *static_cast<const Id*>(tree);
    return StreamIO(
        StreamOf(is_tree ? std::string("tree 81\0", 8) + record : std::string("blob 1\0x", 8)));
  };
  const std::ptrdiff_t before = LiveBlocks();
  const int failures = ForEachFailingAllocation(
      [] { return std::make_unique<RecordingRepository>(); },
      [&](std::unique_ptr<RecordingRepository>& repository) {
        Id id(tree_id);
        const cow_ptr<Tree> tree = Tree::Deserialize(id, repository.get(), {&id, open});
        EXPECT_EQ(tree->GetLocalBlobCount(), 1u);
      },
      [&](std::unique_ptr<RecordingRepository>& repository, bool) {
        repository.reset();
        EXPECT_EQ(LiveBlocks(), before);
      });
  EXPECT_GT(failures, 10);
}

TEST(ObjectAllocationFailure, OfDestructionCannotHappen) {
  const int failures = ForEachFailingAllocation(
      [] {
        RecordingRepository repository(RecordingRepository::Mode::PassThrough);
        cow_ptr<Commit> tip = Make<Commit>();
        tip.write()->AddBlob(&repository, TAL_WIDE("a/b/c/d"), BlobOf("x"));
        return Make<Commit>(tip, false);
      },
      [](cow_ptr<Commit>& tip) { tip = nullptr; },
      [](const cow_ptr<Commit>& tip, bool threw) {
        EXPECT_TRUE(tip == nullptr);
        EXPECT_FALSE(threw);
      });
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace TalVcs::Testing
