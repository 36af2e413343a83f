#include <talvcs/merge/three_way_merge.h>
#include <tests/on_demand/lockstep.h>
#include <tests/support/contents.h>

#include <algorithm>

// The operations on branches and histories, and those that read.

namespace TalVcs::Testing {

namespace {

using Path = array_view<const TalStringViewT<WideChar>>;

unsigned HashOf(const Path& path, unsigned salt) {
  unsigned hash = 2166136261U ^ salt;
  for (const auto& component : path) {
    for (const char unit : Ascii(component) + '/') {
      hash = (hash ^ static_cast<unsigned char>(unit)) * 16777619U;
    }
  }
  return hash >> 8;
}

std::string Show(const Path& path) {
  std::string text;
  for (const auto& component : path) text += Ascii(component) + '/';
  return text;
}

// Answers by the hash of the path, and notes what was asked. Some answers look into the trees.
Resolvers ResolversOf(unsigned salt, std::string& questions) {
  const auto blob = [salt, &questions](Path path, MergeTrees trees) {
    questions += "blob " + Show(path) + ' ';
    const unsigned hash = HashOf(path, salt);
    if (salt % 3 == 0) {
      questions += trees.left && trees.left->GetDeepBlob(Wide(Show(path))) ? "left " : "no left ";
      questions +=
          trees.right && trees.right->GetDeepObject(Wide(Show(path))) ? "right " : "no right ";
    }
    if (salt % 7 == 0 && hash % 5 == 0) return ConflictChoice::Undecided;
    return static_cast<ConflictChoice>(hash % 3);
  };
  const auto tree = [salt, &questions](Path path, MergeTrees) {
    questions += "tree " + Show(path) + ' ';
    const unsigned hash = HashOf(path, salt);
    if (path.empty() || hash % 4 != 0) return TreeConflictChoice::Descend;
    return static_cast<TreeConflictChoice>(1 + hash / 4 % (salt % 7 == 0 ? 4 : 3));
  };
  return {blob, tree};
}

}  // namespace

void Lockstep::CreateBranch() {
  const std::size_t repository = PickRepository();
  const std::string name = PickBranch();
  const Version version = PickVersion(repository);
  const bool at_head = m_random.OneIn(3);
  Both([=](Side& side) {
    const cow_ptr<Commit> at = at_head ? nullptr : side.Find(version);
    return std::to_string(side.repositories[repository]->CreateBranch(Wide(name), at));
  });
}

void Lockstep::MoveBranch() {
  const std::size_t repository = PickRepository();
  const std::string name = PickBranch();
  const Version version = PickVersion(repository);
  auto& held = m_ordinary.commits[repository];
  const std::size_t of_held = held.empty() ? 0 : m_random.Below(2 * held.size());
  Both([=](Side& side) {
    const auto& own = side.commits[repository];
    const cow_ptr<Commit> to = of_held < own.size() ? own[of_held] : side.Find(version);
    return std::to_string(side.repositories[repository]->MoveBranchTo(Wide(name), to));
  });
}

void Lockstep::RemoveBranch() {
  const std::size_t repository = PickRepository();
  const std::string name = PickBranch();
  Both([=](Side& side) {
    return std::to_string(side.repositories[repository]->RemoveBranch(Wide(name)));
  });
}

void Lockstep::Checkout() {
  const std::size_t repository = PickRepository();
  const std::string name = PickBranch();
  Both([=](Side& side) {
    return std::to_string(side.repositories[repository]->Checkout(Wide(name)));
  });
}

void Lockstep::Merge() {
  const std::size_t repository = PickRepository();
  Version version = PickVersion(repository);
  if (m_random.OneIn(2)) version.stepsUp = 0;
  const std::size_t kind = m_random.Below(5);
  const auto salt = static_cast<unsigned>(m_random.Below(1000));
  Both([=](Side& side) {
    Repository& target = *side.repositories[repository];
    const cow_ptr<Commit> commit = side.Find(version);
    std::string questions;
    const Resolvers resolvers = ResolversOf(salt, questions);
    const bool merged = kind == 0   ? target.FastForwardMerge(commit)
                        : kind == 1 ? target.Merge3Way(commit, resolvers)
                                    : target.Merge(commit, resolvers);
    return std::to_string(merged) + questions;
  });
}

void Lockstep::MergeTrees() {
  const std::size_t repository = PickRepository();
  const Version left = PickVersion(PickRepository());
  const Version root = PickVersion(repository);
  const Version right = PickVersion(repository);
  const auto salt = static_cast<unsigned>(m_random.Below(1000));
  const bool hold = !m_namesCollide && m_random.OneIn(2);
  Both([=](Side& side) {
    std::string questions;
    const Resolvers resolvers = ResolversOf(salt, questions);
    const cow_ptr<Tree> merged =
        ThreeWayMerge(side.repositories[repository].get(),
                      {side.FindRoot(left), side.FindRoot(root), side.FindRoot(right)}, resolvers);
    const std::string result = questions + IdOf(merged);
    if (hold) side.trees.push_back(merged);
    return result;
  });
}

void Lockstep::EnsureCommonRoot() {
  const std::size_t repository = PickRepository();
  const std::string first = PickBranch();
  const std::string second = PickBranch();
  const std::string root = m_random.OneIn(2) ? "root" : PickBranch();
  Both([=](Side& side) {
    return std::to_string(
        side.repositories[repository]->EnsureCommonRootFor(Wide(first), Wide(second), Wide(root)));
  });
}

void Lockstep::Simplify() {
  const std::size_t repository = PickRepository();
  const bool purge = m_random.OneIn(2);
  Both([=](Side& side) {
    return std::to_string(side.repositories[repository]->SimplifyCommitGraph(purge));
  });
}

// An ordinary repository keeps the deleted commits for their children, so that an id may have two
// instances there. A save and a load leave one.
void Lockstep::DeleteCommits() {
  const std::size_t repository = PickRepository();
  const Version version = PickVersion(repository);
  Both([=](Side& side) {
    return std::to_string(side.repositories[repository]->DeleteCommits(side.Find(version)));
  });
  CompareHeads();
  SaveAndReopen(repository);
}

void Lockstep::Purge() {
  const std::size_t repository = PickRepository();
  const std::uint64_t calls = m_reader->calls;
  Both([=](Side& side) {
    side.repositories[repository]->UpdateStorage();
    return std::string();
  });
  if (m_reader->calls != calls) throw Difference("a purge reads");
}

void Lockstep::CopyRepository() {
  const std::size_t from = m_random.Below(2);
  for (Side* side : {&m_ordinary, &m_onDemand}) {
    side->commits[1 - from].clear();
    side->drafts[1 - from] = std::make_unique<Commit>();
    if (from == 0) {
      *side->repositories[1] = std::as_const(*side->repositories[0]);
    } else {
      side->repositories[0] = std::make_unique<Repository>(std::as_const(*side->repositories[1]));
    }
  }
}

void Lockstep::ListTree() {
  const Version version = PickVersion(PickRepository());
  Both([=](Side& side) { return DescribeTree(side.FindRoot(version)); });
}

void Lockstep::CompareTrees() {
  const Version a = PickVersion(PickRepository());
  const Version b = PickVersion(PickRepository());
  Both([=](Side& side) { return DescribeDiff(side.FindRoot(a), side.FindRoot(b)); });
}

void Lockstep::ReadPath() {
  const Version version = PickVersion(PickRepository());
  const std::string path = PickPath();
  const bool whole = m_random.OneIn(2);
  const std::string at = whole ? path : path.substr(0, path.rfind('/'));
  Both([=](Side& side) {
    const cow_ptr<Tree> root = side.FindRoot(version);
    if (!root) return std::string("no tree");
    const auto id = root->GetIdByPath(Wide(at));
    const cow_ptr<Object> object = root->GetLocalObject(Wide(at.substr(at.rfind('/') + 1)));
    return (id ? Ascii(*id) : "no id") + TextOf(root->GetDeepBlob(Wide(at))) +
           DescribeTree(root->GetDeepTree(Wide(at))) + (object ? "object" : "no object");
  });
}

void Lockstep::ReadHistory() {
  const Version version = PickVersion(PickRepository());
  Both([=](Side& side) { return DescribeHistory(side.Find(version)); });
}

void Lockstep::FindCommonBase() {
  const Version a = PickVersion(PickRepository());
  const Version b = PickVersion(PickRepository());
  Both([=](Side& side) {
    return IdOf(side.repositories[0]->GetCommonBase(side.Find(a), side.Find(b)));
  });
}

void Lockstep::FindBranches() {
  const std::size_t repository = PickRepository();
  const Version version = PickVersion(repository);
  Both([=](Side& side) {
    const IObjectsStorage& storage = *side.repositories[repository]->GetStorage();
    auto names = Ascii(storage.GetCommitBranches(side.Find(version)));
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) text += name + ' ';
    return text;
  });
}

// What an ordinary repository finds by id, the other one finds as well. That may have more.
void Lockstep::FindById() {
  const std::size_t repository = PickRepository();
  const bool of_tree = m_random.OneIn(2);
  const Id id = PickStoredId(repository, of_tree);
  const Version version = PickVersion(repository);
  Both([=](Side& side) {
    const Repository& target = *side.repositories[repository];
    const cow_ptr<Commit> commit = side.Find(version);
    std::string text = of_tree ? DescribeTree(target.GetTreeFromStorage(id))
                               : TextOf(target.GetBlobFromStorage(id));
    if (commit) text += target.GetCommitFromStorage(commit->GetId()) == commit ? " same" : " other";
    return text;
  });
}

void Lockstep::Hold() {
  const std::size_t repository = PickRepository();
  const Version version = PickVersion(repository);
  const bool commit = m_random.OneIn(2);
  const std::string below = m_random.OneIn(2) ? std::string() : PickPath().substr(0, 1);
  Both([=](Side& side) {
    if (commit) {
      const cow_ptr<Commit> found = side.Find(version);
      if (found) side.commits[repository].push_back(found);
      return IdOf(found);
    }
    cow_ptr<Tree> tree = side.FindRoot(version);
    if (tree && !below.empty()) tree = tree->GetLocalTree(Wide(below));
    side.trees.push_back(tree);
    return IdOf(tree);
  });
}

void Lockstep::DropHandles() {
  const bool drafts = m_random.OneIn(2);
  for (Side* side : {&m_ordinary, &m_onDemand}) {
    side->commits[0].clear();
    side->commits[1].clear();
    side->trees.clear();
    if (drafts) side->Forget();
  }
}

}  // namespace TalVcs::Testing
