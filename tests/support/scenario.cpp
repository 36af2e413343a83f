#include <tests/support/scenario.h>

#include <kit/batch_edit.h>
#include <kit/save_repository.h>
#include <talvcs/persistence/deserializer.h>
#include <tests/support/contents.h>
#include <tests/support/invariants.h>

#include <optional>
#include <stdexcept>

// The branches, oldest commit on the left:
//
//   import - edit - t1 ... tn           topic, merged into master with the right side's answers
//              \ - m1 ... mn - merge - r1     master, merged into side with the left side's
//               \ - s1 ... sn - merge         side
//   apart, far                          unrelated to all others, then placed on "common"

namespace TalVcs::Testing {
namespace {

void Check(bool fine, const char* what) {
  if (!fine) throw std::logic_error(what);
}

Resolvers Choosing(ConflictChoice blobs) {
  return {[blobs](array_view<const TalStringViewT<WideChar>>, const MergeTrees&) { return blobs; },
          [](array_view<const TalStringViewT<WideChar>>, const MergeTrees&) {
            return TreeConflictChoice::Descend;
          }};
}

}  // namespace

Scenario::Scenario(int files, int commits) {
  for (int number = 0; number < files; ++number) {
    const std::string text = std::to_string(number);
    m_files.push_back({Wide("folder" + std::to_string(number % 3) + "/below" +
                            std::to_string(number % 2) + "/file " + text),
                       BlobOf("the first content of file " + text)});
  }
  for (int number = 0; number < commits; ++number) {
    m_names.push_back(Wide("commit number " + std::to_string(number)));
  }
}

std::string Scenario::Run(Repository& repository, Kit::MemoryStore& store) const {
  StartAfresh(repository);
  Import(repository);
  Edit(repository);
  ForkAndMerge(repository);
  Rebase(repository);
  CutHistory(repository);
  Clone(repository);
  SaveAndLoad(repository, store);
  return Inventory(repository);
}

void Scenario::RemoveBranches(Repository& repository) {
  std::vector<WideText> names;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) names.push_back(name);
  for (const WideText& name : names) repository.RemoveBranch(name);
}

// Objects stay: an interrupted life may have left some that the next one meets.
void Scenario::StartAfresh(Repository& repository) const {
  RemoveBranches(repository);
  Check(repository.CreateBranch(TAL_WIDE("master"), nullptr), "no branch to begin with");
  Check(repository.Checkout(TAL_WIDE("master")), "the first branch can't be checked out");
  Check(!repository.GetHead(), "the first branch has a head");
}

void Scenario::Import(Repository& repository) const {
  Commit commit(&repository, false);
  commit.SetDescription(TAL_WIDE("All the files, by Ann"));
  commit.SetAuthorName(TAL_WIDE("Ann, who imports"));
  commit.SetAuthorEmail(TAL_WIDE("ann@example.org"));
  for (const File& file : m_files) {
    Check(commit.AddBlob(&repository, file.path, file.blob) != nullptr, "a file isn't added");
  }
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  Check(stored && repository.GetHead() == stored, "the import isn't the head");
  Check(stored->GetTree()->GetBlobCount() == m_files.size(), "files are missing");
}

void Scenario::Edit(Repository& repository) const {
  Commit commit(&repository, false);
  commit.SetDescription(TAL_WIDE("A file gone, a folder twice, several at once"));
  Check(commit.RemoveObject(&repository, m_files.back().path), "no file to remove");
  const cow_ptr<CommitTree> folder = commit.GetTree(TAL_WIDE("folder0"));
  Check(folder && commit.AddObject(&repository, TAL_WIDE("twice/folder"), folder->GetRootId()),
        "the folder isn't added");
  Kit::BatchEdit edit;
  for (const File& file : m_files)
    edit.AddBlob(WideText(TAL_WIDE("batch/")) + file.path, file.blob);
  edit.RemoveObject(WideText(TAL_WIDE("batch/")) + m_files.front().path);
  Check(edit.ApplyTo(&repository, commit) == edit.GetCount(), "not all edits take effect");
  Check(repository.DoCommit(commit) != nullptr, "the edit isn't committed");

  Commit amended(&repository, true);
  amended.SetDescription(TAL_WIDE("The same in other words"));
  const cow_ptr<Commit> stored = repository.DoCommit(amended);
  Check(stored && stored == repository.GetHead(), "the head isn't amended");
}

// Each commit adds a file of its own and changes one that all branches change.
void Scenario::Grow(Repository& repository, TalStringViewT<WideChar> branch,
                    TalStringViewT<WideChar> side, const Blob& content) const {
  Check(repository.BranchExist(branch) || repository.CreateBranch(branch, nullptr), "no branch");
  Check(repository.Checkout(branch), "the branch can't be checked out");
  for (const WideText& name : m_names) {
    Commit commit(&repository, false);
    commit.SetDescription(name);
    const WideText path = WideText(side + WideText(TAL_WIDE("/"))) + name;
    Check(commit.AddBlob(&repository, path, content) != nullptr, "no new file");
    Check(commit.AddBlob(&repository, m_files.front().path, content) != nullptr, "no new text");
    Check(repository.DoCommit(commit) != nullptr, "nothing is committed");
  }
}

void Scenario::ForkAndMerge(Repository& repository) const {
  const cow_ptr<Commit> fork = repository.GetHead();
  Check(repository.CreateBranch(TAL_WIDE("topic"), fork), "no branch topic");
  Check(repository.CreateBranch(TAL_WIDE("side"), fork), "no branch side");
  Grow(repository, TAL_WIDE("topic"), TAL_WIDE("from topic"), BlobOf("what topic puts here"));
  Grow(repository, TAL_WIDE("side"), TAL_WIDE("from side"), BlobOf("what side puts here"));
  Grow(repository, TAL_WIDE("master"), TAL_WIDE("from master"), BlobOf("what master puts here"));

  const cow_ptr<Commit> topic = repository.GetHead(TAL_WIDE("topic"));
  Check(repository.GetCommonBase(repository.GetHead(), topic) == fork, "another common base");
  Check(repository.Merge(topic, Choosing(ConflictChoice::Right)), "topic isn't merged");
  Check(TextOf(repository.GetHead()->GetBlob(m_files.front().path)) == "what topic puts here",
        "the right side has lost");
  Check(repository.Checkout(TAL_WIDE("side")), "side can't be checked out");
  const cow_ptr<Commit> merged = repository.GetHead(TAL_WIDE("master"));
  Check(!repository.Merge(merged, Choosing(ConflictChoice::Undecided)), "nobody has decided");
  const ConflictResolver byTime = TimeBasedConflictResolver(
      {TAL_WIDE("no such file")}, [](const cow_ptr<Blob>&) { return std::optional<Time>(); });
  Resolvers resolvers = Choosing(ConflictChoice::Left);
  resolvers.blobResolver = ChainResolvers(byTime, resolvers.blobResolver);
  Check(repository.Merge(merged, resolvers), "master isn't merged");
  Check(TextOf(repository.GetHead()->GetBlob(m_files.front().path)) == "what side puts here",
        "the left side has lost");
  Check(repository.CreateBranch(TAL_WIDE("behind"), fork), "no branch behind");
  Check(repository.Checkout(TAL_WIDE("behind")), "behind can't be checked out");
  Check(repository.FastForwardMerge(merged), "behind isn't moved forward");
}

void Scenario::Rebase(Repository& repository) const {
  for (const auto branch : {TAL_WIDE("apart"), TAL_WIDE("far")}) {
    cow_ptr<Commit> tip;
    for (const WideText& name : m_names) {
      Commit next(tip, false);
      next.SetDescription(name);
      next.SetAuthorName(branch);
      next.AddBlob(&repository, name, m_files.front().blob);
      tip = repository.SyncWithStorage(Make<Commit>(next));
    }
    Check(repository.CreateBranch(branch, tip), "no unrelated branch");
  }
  Check(repository.EnsureCommonRootFor(TAL_WIDE("apart"), TAL_WIDE("far"), TAL_WIDE("common")),
        "no common root");
  Check(repository.GetCommonBase(repository.GetHead(TAL_WIDE("apart")),
                                 repository.GetHead(TAL_WIDE("far"))) != nullptr,
        "no common base after the rebase");
}

void Scenario::CutHistory(Repository& repository) const {
  Check(repository.Checkout(TAL_WIDE("side")), "side can't be checked out");
  // A handle would keep what the purge is to take.
  Check(repository.DeleteCommits(repository.GetHead(TAL_WIDE("far"))->GetParent()),
        "nothing is deleted");
  Check(repository.RemoveBranch(TAL_WIDE("topic")), "topic isn't removed");
  Check(repository.SimplifyCommitGraph(false), "nothing is simplified");
  repository.UpdateStorage();
}

void Scenario::Clone(Repository& repository) const {
  Repository copy(repository);
  const std::string before = Inventory(repository);
  Check(Inventory(copy) == before, "the clone differs");
  Commit commit(&copy, false);
  commit.AddBlob(&copy, TAL_WIDE("only/in/the/clone"), m_files.front().blob);
  const cow_ptr<Commit> stored = copy.DoCommit(commit);
  Check(stored && stored == copy.GetHead(), "nothing is committed in the clone");
  Check(Inventory(repository) == before, "the clone's commit shows in the original");
}

void Scenario::SaveAndLoad(Repository& repository, Kit::MemoryStore& store) const {
  const WideText root(TAL_WIDE("a document"));
  Check(Kit::SaveRepository(repository, store, root), "the repository isn't saved");
  Repository loaded = NewRepository();
  // The current branch has no head, as the first commit of a history would go on from that.
  Check(loaded.CreateBranch(TAL_WIDE("nowhere"), nullptr), "no branch to load from");
  Check(loaded.Checkout(TAL_WIDE("nowhere")), "the empty branch can't be checked out");
  Check(Deserializer(&store, root).Deserialize(&loaded), "the store isn't loaded");
  Check(loaded.RemoveBranch(TAL_WIDE("nowhere")), "the empty branch isn't removed");
  Check(Inventory(loaded) == Inventory(repository), "what is loaded differs");
}

}  // namespace TalVcs::Testing
