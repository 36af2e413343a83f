#include "checks.h"

#include "target.h"

#include <kit/memory_store.h>
#include <kit/save_repository.h>
#include <kit/text.h>
#include <talvcs/foundation/helpers.h>

#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Fuzz {

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it

Id FreshId(const Buffer& packed) { return Id(Helpers::ComputeEncodedSHA256Hash(packed)); }

template <class Table>
void CheckTable(const Table& table) {
  for (const auto& [id, object] : table) {
    Require(static_cast<bool>(object), "a table holds objects");
    Require(object->GetId() == id, "a key is its object's id");
    Require(FreshId(object->BuildPackedData()) == id, "an id is the digest of the packed form");
  }
}

/// Visits what commits reach, each object once, without recursion.
class Reach {
 public:
  void Add(cow_ptr<Commit> commit) {
    for (; commit && m_seen.insert(commit.get()).second; commit = commit->GetParent()) {
      Visit(*commit);
      if (const cow_ptr<CommitTree> tree = commit->GetTree()) AddTrees(tree->GetRoot());
    }
  }

  /// True if a store can hold everything: a tree without entries comes back as none, and a first
  /// commit must not speak of a "parent ".
  bool CanBeStored() const { return m_canBeStored; }

 private:
  void Visit(const Commit& commit) {
    Require(FreshId(commit.BuildPackedData()) == commit.GetId(), "a commit has its id");
    constexpr std::int64_t kTicksOfHour = 36'000'000'000;
    const std::int64_t hours = commit.GetCommitTimezoneBias().ticks / kTicksOfHour;
    if (hours <= -100 || hours >= 100) m_canBeStored = false;
    if (commit.GetParent()) return;
    const auto speaks = [](const TalStringT<WideChar>& text) {
      return text.Find(TAL_WIDE("parent ")) >= 0;
    };
    if (speaks(commit.GetAuthorName()) || speaks(commit.GetAuthorEmail()) ||
        speaks(commit.GetDesciption())) {
      m_canBeStored = false;
    }
  }

  void AddTrees(const cow_ptr<Tree>& root) {
    std::vector<cow_ptr<Tree>> open{root};
    while (!open.empty()) {
      const cow_ptr<Tree> tree = std::move(open.back());
      open.pop_back();
      if (!tree || !m_seen.insert(tree.get()).second) continue;
      Require(FreshId(tree->BuildPackedData()) == tree->GetId(), "a tree has its id");
      if (tree->IsEmpty()) m_canBeStored = false;
      for (const auto& name : tree->GetLocalSubtreePaths()) {
        open.push_back(tree->GetLocalTree(name));
        Require(static_cast<bool>(open.back()), "a listed subtree is there");
      }
      for (const auto& name : tree->GetLocalBlobPaths()) {
        const cow_ptr<Blob> blob = tree->GetLocalBlob(name);
        Require(static_cast<bool>(blob), "a listed blob is there");
        Require(FreshId(blob->BuildPackedData()) == blob->GetId(), "a blob has its id");
      }
    }
  }

  std::unordered_set<const void*> m_seen;
  bool m_canBeStored = true;
};

}  // namespace

ModelTest::RepositoryTwin NewRepository() {
  return {std::make_unique<Repository>(std::make_unique<MemObjectsStorage>()),
          std::make_unique<Model::Repository>(std::make_unique<Model::Storage>())};
}

void CheckObjects(const Repository& repository) {
  const IObjectsStorage& storage = *repository.GetStorage();
  CheckTable(storage.GetCommits());
  CheckTable(storage.GetTrees());
  CheckTable(storage.GetBlobs());
  Reach reach;
  for (const auto& [id, commit] : storage.GetCommits()) reach.Add(commit);
  for (const auto& [name, head] : storage.GetRefs()) reach.Add(head);
}

void CheckSaving(Repository& repository) {
  Reach reach;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) reach.Add(head);

  Kit::MemoryStore store;
  Require(Kit::SaveRepository(repository, store, {}), "every repository can be saved");
  if (!reach.CanBeStored()) return;

  // The current branch is one that no store can name, so that it never gets a head, which would
  // become the parent of the first commits.
  Repository again(std::make_unique<MemObjectsStorage>(
      std::initializer_list<TalStringViewT<WideChar>>{TalStringViewT<WideChar>()}));
  again.Checkout(TalStringViewT<WideChar>());
  again.RemoveBranch(TalStringViewT<WideChar>());
  Require(Deserializer(&store, {}).Deserialize(&again), "what was saved can be loaded");
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) {
    const cow_ptr<Commit> loaded = again.GetHead(name);
    Require(static_cast<bool>(head) == static_cast<bool>(loaded), "a saved branch comes back");
    Require(!head || *head == *loaded, "a head comes back with its id");
  }
  CheckObjects(again);
}

}  // namespace Fuzz
