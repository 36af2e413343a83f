#include "world.h"

#include "resolver_twins.h"

namespace ModelTest {

void World::CreateBranch() {
  RepositoryTwin& repository = PickRepository();
  const Model::Text name = PickBranch();
  const CommitTwin commit = PickCommit();
  Say(Show(name) + (commit ? " at a commit" : " at the head"));
  ExpectSameBool("CreateBranch", repository.lib->CreateBranch(ToLib(name), commit.lib),
                 repository.model->CreateBranch(name, commit.model));
}

void World::MoveBranch() {
  RepositoryTwin& repository = PickRepository();
  const Model::Text name = PickBranch();
  const CommitTwin commit = PickCommit();
  Say(Show(name));
  ExpectSameBool("MoveBranchTo", repository.lib->MoveBranchTo(ToLib(name), commit.lib),
                 repository.model->MoveBranchTo(name, commit.model));
}

void World::RemoveBranch() {
  RepositoryTwin& repository = PickRepository();
  const Model::Text name = PickBranch();
  Say(Show(name));
  ExpectSameBool("RemoveBranch", repository.lib->RemoveBranch(ToLib(name)),
                 repository.model->RemoveBranch(name));
  ExpectSameBool("BranchExist", repository.lib->BranchExist(ToLib(name)),
                 repository.model->BranchExist(name));
}

void World::Checkout() {
  RepositoryTwin& repository = PickRepository();
  const Model::Text name = PickBranch();
  Say(Show(name));
  ExpectSameBool("Checkout", repository.lib->Checkout(ToLib(name)),
                 repository.model->Checkout(name));
}

void World::FindCommonBase() {
  const RepositoryTwin& repository = PickRepository();
  const CommitTwin first = PickCommit();
  const CommitTwin second = PickCommit();
  const CommitTwin base = {repository.lib->GetCommonBase(first.lib, second.lib),
                           repository.model->GetCommonBase(first.model, second.model)};
  ExpectSameBool("GetCommonBase", base.lib, static_cast<bool>(base.model));
  Hold(base);
}

void World::EnsureCommonRoot() {
  RepositoryTwin& repository = PickRepository();
  const Model::Text first = PickBranch();
  const Model::Text second = PickBranch();
  const Model::Text root = PickBranch();
  Say(Show(first) + " " + Show(second) + " on " + Show(root));
  ExpectSameBool("EnsureCommonRootFor",
                 repository.lib->EnsureCommonRootFor(ToLib(first), ToLib(second), ToLib(root)),
                 repository.model->EnsureCommonRootFor(first, second, root));
}

void World::DeleteCommits() {
  RepositoryTwin& repository = PickRepository();
  CommitTwin commit = PickCommit();
  Say(commit ? commit.model->GetId() : "none");
  if (m_choices.OneIn(2)) {
    Say("given away");
    ExpectSameBool("DeleteCommits", repository.lib->DeleteCommits(std::move(commit.lib)),
                   repository.model->DeleteCommits(std::move(commit.model)));
  } else {
    ExpectSameBool("DeleteCommits", repository.lib->DeleteCommits(commit.lib),
                   repository.model->DeleteCommits(commit.model));
  }
}

// Takes one commit out of the table without the repository.
void World::DeleteStoredCommit() {
  RepositoryTwin& repository = PickRepository();
  if (repository.lib->GetStorage() == nullptr) return;
  const CommitTwin commit = m_choices.OneIn(2) ? PickStoredCommit(repository) : PickCommit();
  repository.lib->GetStorage()->DeleteCommit(commit.lib);
  repository.model->GetStorage()->DeleteCommit(commit.model);
}

void World::Simplify() {
  RepositoryTwin& repository = PickRepository();
  const bool update = m_choices.OneIn(2);
  Say(update ? "with a purge" : "without a purge");
  ExpectSameBool("SimplifyCommitGraph", repository.lib->SimplifyCommitGraph(update),
                 repository.model->SimplifyCommitGraph(update));
}

void World::Purge() {
  RepositoryTwin& repository = PickRepository();
  repository.lib->UpdateStorage();
  repository.model->UpdateStorage();
}

void World::Merge() {
  RepositoryTwin& repository = PickRepository();
  const CommitTwin commit = PickCommit();
  const Questions questions = {std::make_shared<std::vector<std::string>>(),
                               std::make_shared<std::vector<std::string>>()};
  const ResolversTwin resolvers = MakeResolvers(m_choices, questions);
  const unsigned kind = m_choices.Below(6);
  Say(kind == 0 ? "by fast-forward" : kind == 1 ? "in three ways" : "as it fits");
  const bool merged = kind == 0   ? repository.lib->FastForwardMerge(commit.lib)
                      : kind == 1 ? repository.lib->Merge3Way(commit.lib, resolvers.lib)
                                  : repository.lib->Merge(commit.lib, resolvers.lib);
  const auto head = repository.lib->GetHead();
  const Model::Stamp now = head ? StampOf(*head) : Model::Stamp();
  const bool expected = kind == 0 ? repository.model->FastForwardMerge(commit.model)
                        : kind == 1
                            ? repository.model->Merge3Way(commit.model, resolvers.model, now)
                            : repository.model->Merge(commit.model, resolvers.model, now);
  if (*questions.lib != *questions.model) throw Mismatch("the resolvers were asked differently");
  ExpectSameBool("merge", merged, expected);
}

}  // namespace ModelTest
