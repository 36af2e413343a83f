#include <tests/on_demand/side.h>

#include <talvcs/storage/mem_objects_storage.h>
#include <tests/support/contents.h>

#include <algorithm>
#include <unordered_map>

namespace TalVcs::Testing {

namespace {

std::string Join(const std::vector<TalStringT<WideChar>>& texts) {
  std::string joined;
  for (const std::string& text : Ascii(texts)) joined += text + ",";
  return joined;
}

cow_ptr<Tree> RootOf(const cow_ptr<Commit>& commit) {
  const cow_ptr<CommitTree> handle = commit ? commit->GetTree() : nullptr;
  return handle ? handle->GetRoot() : nullptr;
}

/// Makes everything that is reachable anew in an empty repository.
class Rebuilding {
 public:
  explicit Rebuilding(Repository& target) : m_target(target) {}

  cow_ptr<Commit> CommitOf(const cow_ptr<Commit>& head) {
    std::vector<cow_ptr<Commit>> chain;
    for (cow_ptr<Commit> at = head; at && !m_target.GetCommitFromStorage(at->GetId());
         at = at->GetParent()) {
      chain.push_back(at);
    }
    for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
      Commit copy(**at);
      const cow_ptr<Commit> parent = (*at)->GetParent();
      copy.SetParent(parent ? m_target.GetCommitFromStorage(parent->GetId()) : nullptr);
      if (const cow_ptr<Tree> root = RootOf(*at)) copy.ReplaceRoot(&m_target, TreeOf(root));
      m_target.SyncWithStorage(Make<Commit>(copy));
    }
    return head ? m_target.GetCommitFromStorage(head->GetId()) : nullptr;
  }

 private:
  cow_ptr<Tree> TreeOf(const cow_ptr<Tree>& tree) {
    if (cow_ptr<Tree> known = m_target.GetTreeFromStorage(tree->GetId())) return known;
    Tree made;
    for (const auto& name : tree->GetLocalBlobPaths()) {
      made.AddBlob(&m_target, name, *tree->GetLocalBlob(name));
    }
    for (const auto& name : tree->GetLocalSubtreePaths()) {
      if (tree->GetLocalBlob(name)) continue;
      made.AddTree(&m_target, name, *TreeOf(tree->GetLocalTree(name)));
    }
    return m_target.SyncWithStorage(Make<Tree>(made));
  }

  Repository& m_target;
};

}  // namespace

void Side::Forget() {
  for (auto& held : commits) held.clear();
  trees.clear();
  for (auto& draft : drafts) draft = std::make_unique<Commit>();
}

cow_ptr<Commit> Side::Find(const Version& version) const {
  cow_ptr<Commit> at = repositories[version.repository]->GetHead(Wide(version.branch));
  for (std::size_t step = 0; at && step < version.stepsUp; ++step) at = at->GetParent();
  return at;
}

cow_ptr<Tree> Side::FindRoot(const Version& version) const { return RootOf(Find(version)); }

std::string DescribeTree(const cow_ptr<Tree>& tree) {
  if (!tree) return "no tree";
  std::string text = IdOf(tree) + ' ' + std::to_string(tree->GetLocalObjectCount()) + ' ' +
                     std::to_string(tree->GetLocalBlobCount()) + ' ' +
                     std::to_string(tree->GetDeepBlobCount()) + (tree->IsEmpty() ? " empty " : " ");
  text += Join(tree->GetLocalObjectPaths()) + '|' + Join(tree->GetLocalBlobPaths()) + '|' +
          Join(tree->GetLocalSubtreePaths()) + '|';
  return text + ListingOf(tree);
}

std::string DescribeDiff(const cow_ptr<Tree>& a, const cow_ptr<Tree>& b) {
  if (!a) return "no tree";
  return Join(a->GetLocalBlobDiffs(b)) + '|' + Join(a->GetLocalTreeDiffs(b)) + '|' +
         Join(a->GetDeepBlobDiffs(b));
}

// Where a name holds " <", the text doesn't say where the e-mail begins.
std::string DescribeHistory(const cow_ptr<Commit>& commit) {
  std::string text;
  for (cow_ptr<Commit> at = commit; at; at = at->GetParent()) {
    text += IdOf(at) + '\n' + Ascii(at->GetAuthorName()) + " <" + Ascii(at->GetAuthorEmail()) +
            '|' + Ascii(at->GetDesciption()) + '|' + std::to_string(at->GetCommitTime().ticks) +
            '|' + std::to_string(at->GetCommitTimezoneBias().ticks) + '\n' + Bytes(at->GetData());
  }
  return text;
}

std::string DescribeAll(const Repository& repository) {
  std::string text;
  for (const auto& [name, id] : HeadsOf(repository)) {
    const cow_ptr<Commit> head = repository.GetHead(Wide(name));
    text += name + ":\n" + DescribeHistory(head);
    for (cow_ptr<Commit> at = head; at; at = at->GetParent()) {
      text += DescribeTree(RootOf(at)) + '\n';
    }
  }
  return text;
}

std::map<std::string, std::string> HeadsOf(const Repository& repository) {
  std::map<std::string, std::string> heads;
  const IObjectsStorage& storage = *repository.GetStorage();
  if (const OnDemandStorage* on_demand = OnDemandStorage::From(&storage)) {
    for (const auto& [name, id] : on_demand->GetHeadIds()) heads[Ascii(name)] = Ascii(id);
  } else {
    for (const auto& [name, head] : storage.GetRefs()) {
      heads[Ascii(name)] = head ? IdOf(head) : "";
    }
  }
  return heads;
}

std::unique_ptr<Repository> Rebuild(const Repository& repository) {
  auto target = std::make_unique<Repository>(
      std::make_unique<MemObjectsStorage>(std::initializer_list<TalStringViewT<WideChar>>()));
  Rebuilding rebuilding(*target);
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) {
    target->GetStorage()->CreateBranch(name, rebuilding.CommitOf(head));
  }
  target->Checkout(repository.GetCurentBranch());
  target->UpdateStorage();
  return target;
}

bool HidesAnyTree(const IObjectsStorage& storage) {
  for (const auto& [id, tree] : storage.GetTrees()) {
    for (const auto& name : tree->GetLocalSubtreePaths()) {
      if (tree->GetLocalBlob(name)) return true;
    }
  }
  return false;
}

}  // namespace TalVcs::Testing
