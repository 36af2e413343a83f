#include "world.h"

#include "comparison.h"

#include <algorithm>
#include <numeric>

namespace ModelTest {
namespace {

std::int64_t FirstSecond(Choices& choices) {
  // The last two lie around and beyond what 32 bits hold.
  constexpr std::array<std::int64_t, 4> seconds = {1700000000, 0, 2147483640, 5000000000};
  return choices.Of(seconds);
}

const char* Zone(Choices& choices) {
  constexpr std::array<const char*, 6> zones = {"UTC0",     "ZONE-5:30", "ZONE8",
                                                "ZONE0:30", "ZONE-14",   "ZONE3:45"};
  return choices.Of(zones);
}

}  // namespace

World::World(Choices& choices) : m_choices(choices), m_clock(FirstSecond(choices), Zone(choices)) {
  for (RepositoryTwin& twin : m_repositories) {
    twin.lib = std::make_unique<TalVcs::Repository>(std::make_unique<TalVcs::MemObjectsStorage>());
    twin.model = std::make_unique<Model::Repository>(std::make_unique<Model::Storage>());
  }
  for (DraftTwin& draft : m_drafts) {
    draft.lib = std::make_unique<TalVcs::Commit>();
    draft.model = std::make_unique<Model::Commit>();
  }
  // Each run leans towards some of the operations and leaves out others.
  for (const Kind& kind : Kinds()) {
    constexpr std::array<unsigned, 5> factors = {0, 1, 1, 2, 4};
    m_weights.push_back(kind.weight * m_choices.Of(factors));
  }
  m_weights.front() += Kinds().front().weight;
}

const std::vector<World::Kind>& World::Kinds() {
  static const std::vector<Kind> kinds = {
      {30, "CommitQuickly", &World::CommitQuickly},
      {8, "MakeDraft", &World::MakeDraft},
      {4, "SetDraftField", &World::SetDraftField},
      {20, "EditDraft", &World::EditDraft},
      {4, "ReplaceDraftRoot", &World::ReplaceDraftRoot},
      {6, "InspectDraft", &World::InspectDraft},
      {10, "CommitDraft", &World::CommitDraft},
      {4, "RewriteHeldCommit", &World::RewriteHeldCommit},
      {3, "LinkCommits", &World::LinkCommits},
      {4, "SyncObject", &World::SyncObject},
      {10, "EditTree", &World::EditTree},
      {5, "EditCommitTree", &World::EditCommitTree},
      {12, "CompareTrees", &World::CompareTrees},
      {10, "MergeTrees", &World::MergeTrees},
      {12, "CreateBranch", &World::CreateBranch},
      {8, "MoveBranch", &World::MoveBranch},
      {6, "RemoveBranch", &World::RemoveBranch},
      {10, "Checkout", &World::Checkout},
      {6, "FindCommonBase", &World::FindCommonBase},
      {4, "EnsureCommonRoot", &World::EnsureCommonRoot},
      {4, "DeleteCommits", &World::DeleteCommits},
      {2, "DeleteStoredCommit", &World::DeleteStoredCommit},
      {4, "Simplify", &World::Simplify},
      {8, "Purge", &World::Purge},
      {25, "Merge", &World::Merge},
      {10, "TakeHandle", &World::TakeHandle},
      {5, "DropHandles", &World::DropHandles},
      {3, "DropDraft", &World::DropDraft},
      {3, "ReplaceRepository", &World::ReplaceRepository},
      {4, "Save", &World::Save},
      {2, "Damage", &World::Damage},
      {5, "Load", &World::Load},
      {5, "Tick", &World::Tick},
  };
  return kinds;
}

void World::Step() {
  const unsigned total = std::accumulate(m_weights.begin(), m_weights.end(), 0U);
  unsigned drawn = m_choices.Below(total);
  std::size_t index = 0;
  while (drawn >= m_weights[index]) drawn -= m_weights[index++];
  const Kind& kind = Kinds()[index];
  m_operation = kind.name;
  (this->*kind.run)();
}

bool World::IsOrderUnknown() const {
  return std::any_of(m_repositories.begin(), m_repositories.end(),
                     [](const RepositoryTwin& twin) { return twin.model->IsOrderUnknown(); });
}

void World::Check() {
  Comparison comparison;
  for (const RepositoryTwin& repository : m_repositories) comparison.Repositories(repository);
  for (const CommitTwin& commit : m_commits) comparison.Commits(commit.lib, commit.model);
  for (const TreeTwin& tree : m_trees) comparison.Trees(tree.lib, tree.model);
  for (const BlobTwin& blob : m_blobs) comparison.Blobs(blob.lib, blob.model);
  for (const DraftTwin& draft : m_drafts) comparison.Drafts(*draft.lib, *draft.model);
  for (const CommitTreeTwin& tree : m_commitTrees) {
    comparison.Trees(tree.lib.GetRoot(), tree.model.GetRoot());
  }
}

}  // namespace ModelTest
