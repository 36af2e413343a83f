#pragma once

#include <tests/support/fixed_clock.h>
#include "choices.h"
#include "twins.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ModelTest {

/// Repositories, stores and a host's handles, each in the library and in the model.
///
/// Every step is one operation, drawn from the choices and done to both sides, whose results must
/// agree. Raises a `Mismatch` where they don't.
class World {
 public:
  explicit World(Choices& choices);

  /// Does one random operation.
  void Step();

  /// Compares everything that can be reached.
  void Check();

  /// What the last step did, in words.
  const std::string& GetOperation() const { return m_operation; }

  /// True once something depended on an order that only the library knows, so that the model can't
  /// go on.
  bool IsOrderUnknown() const;

 private:
  using Operation = void (World::*)();
  struct Kind {
    unsigned weight;
    std::string_view name;
    Operation run;
  };
  static const std::vector<Kind>& Kinds();
  void Say(const std::string& words) { m_operation += " " + words; }

  // What an operation works on; see world_picks.cpp.
  Model::Text PickName();
  Model::Text PickPath();
  Model::Text PickBranch();
  Model::Text PickWords();
  Model::Bytes PickContent();
  Model::Id PickId();
  CommitTwin PickCommit();
  CommitTwin PickStoredCommit(RepositoryTwin& repository);
  TreeTwin PickTree();
  BlobTwin PickBlob();
  RepositoryTwin& PickRepository();
  Twin<TalVcs::IRepository*, Model::Repository*> PickRepositoryOrNull();
  DraftTwin& PickDraft();
  void Hold(CommitTwin commit);
  void Hold(TreeTwin tree);
  void Hold(BlobTwin blob);

  // Drafts and commits; see world_commits.cpp.
  void MakeDraft();
  void SetDraftField();
  void EditDraft();
  void EditDraft(DraftTwin& draft, Twin<TalVcs::IRepository*, Model::Repository*> repository);
  void ReplaceDraftRoot();
  void InspectDraft();
  void CommitDraft();
  void CommitQuickly();
  void CommitInto(RepositoryTwin& repository, DraftTwin& draft, bool hold);
  void RewriteHeldCommit();
  void LinkCommits();
  void SyncObject();

  // Trees; see world_trees.cpp.
  void EditTree();
  void EditCommitTree();
  void CompareTrees();
  void MergeTrees();

  // Branches and history; see world_history.cpp.
  void CreateBranch();
  void MoveBranch();
  void RemoveBranch();
  void Checkout();
  void FindCommonBase();
  void EnsureCommonRoot();
  void DeleteCommits();
  void DeleteStoredCommit();
  void Simplify();
  void Purge();
  void Merge();

  // Handles, repositories and stores; see world_stores.cpp.
  void TakeHandle();
  void DropHandles();
  void DropDraft();
  void ReplaceRepository();
  void Save();
  void Damage();
  void Load();
  void Tick();

  Choices& m_choices;
  TalVcs::Testing::FixedClock m_clock;
  std::vector<unsigned> m_weights;
  std::array<RepositoryTwin, 3> m_repositories;
  std::array<StoreTwin, 2> m_stores;
  std::array<bool, 2> m_isDamaged = {};
  std::array<DraftTwin, 3> m_drafts;
  std::array<CommitTreeTwin, 2> m_commitTrees;
  std::vector<CommitTwin> m_commits;
  std::vector<TreeTwin> m_trees;
  std::vector<BlobTwin> m_blobs;
  std::string m_operation;
};

}  // namespace ModelTest
