#include "world.h"

namespace ModelTest {
namespace {

template <class LibHandle>
void ExpectSameResult(const std::string& what, const LibHandle& lib, const Model::Entry& model) {
  ExpectSameBool("result of " + what, lib, static_cast<bool>(model));
  if (lib) ExpectSame("id from " + what, FromLib(lib->GetId()), model.GetId());
}

}  // namespace

void World::MakeDraft() {
  DraftTwin& draft = PickDraft();
  const bool amend = m_choices.OneIn(4);
  switch (m_choices.Below(6)) {
    case 0:
      Say("by default");
      draft.lib = std::make_unique<TalVcs::Commit>();
      draft.model = std::make_unique<Model::Commit>();
      break;
    case 1: {
      const CommitTwin source = PickCommit();
      if (!source) return;
      Say("as a copy of " + source.model->GetId());
      draft.lib = std::make_unique<TalVcs::Commit>(*source.lib);
      draft.model = std::make_unique<Model::Commit>(*source.model);
      break;
    }
    case 2: {
      const CommitTwin head = PickCommit();
      Say(amend ? "to amend a commit" : "on a commit");
      draft.lib = std::make_unique<TalVcs::Commit>(head.lib, amend);
      draft.model = std::make_unique<Model::Commit>(head.model, amend);
      break;
    }
    default: {
      const auto repository = PickRepositoryOrNull();
      Say(amend ? "to amend a head" : "on a head");
      draft.lib = std::make_unique<TalVcs::Commit>(repository.lib, amend);
      draft.model = std::make_unique<Model::Commit>(repository.model, amend);
      break;
    }
  }
}

void World::SetDraftField() {
  DraftTwin& draft = PickDraft();
  const Model::Text words = PickWords();
  switch (m_choices.Below(5)) {
    case 0:
      draft.lib->SetDescription(ToLib(words));
      return draft.model->SetDescription(words);
    case 1:
      draft.lib->SetAuthorName(ToLib(words));
      return draft.model->SetAuthorName(words);
    case 2:
      draft.lib->SetAuthorEmail(ToLib(words));
      return draft.model->SetAuthorEmail(words);
    case 3: {
      const CommitTwin parent = PickCommit();
      draft.lib->SetParent(parent.lib);
      return draft.model->SetParent(parent.model);
    }
    default: {
      static const std::vector<std::int64_t> biases = {
          0, 198000000000, -54000000000, -35400000000, -18000000000, 3600000000000, 5};
      static const std::vector<std::uint64_t> times = {0, 10000000, ~std::uint64_t{0},
                                                       30000000000000000, 12345};
      const Model::Stamp stamp{m_choices.Of(times), m_choices.Of(biases)};
      draft.lib->SetCommitTime(TalVcs::Time{stamp.time});
      draft.lib->SetCommitTimezoneBias(TalVcs::TimeDelta{stamp.bias});
      return draft.model->SetStamp(stamp);
    }
  }
}

void World::EditDraft() { EditDraft(PickDraft(), PickRepositoryOrNull()); }

void World::EditDraft(DraftTwin& draft, Twin<TalVcs::IRepository*, Model::Repository*> repository) {
  const Model::Text path = PickPath();
  const LibText libPath = ToLib(path);
  switch (m_choices.Below(repository.lib == nullptr ? 6 : 8)) {
    case 0:
    case 1: {
      Say("remove " + Show(path));
      const bool lib = draft.lib->RemoveObject(repository.lib, libPath);
      return ExpectSameBool("RemoveObject", lib, draft.model->RemoveObject(repository.model, path));
    }
    case 6:
    case 7: {
      const Model::Id id = PickId();
      Say("add " + id + " at " + Show(path));
      const auto lib = draft.lib->AddObject(repository.lib, libPath, ToLibId(id));
      return ExpectSameResult("AddObject", lib, draft.model->AddObject(repository.model, path, id));
    }
    default: {
      const Model::Bytes content = PickContent();
      Say("add " + Show(content) + " at " + Show(path));
      const BlobTwin added = {draft.lib->AddBlob(repository.lib, libPath, BlobOf(content)),
                              draft.model->AddBlob(repository.model, path, Model::Blob(content))};
      ExpectSameResult("AddBlob", added.lib, Model::Entry{added.model, {}});
      if (m_choices.OneIn(20)) Hold(added);
      break;
    }
  }
}

void World::ReplaceDraftRoot() {
  DraftTwin& draft = PickDraft();
  const auto repository = PickRepositoryOrNull();
  const TreeTwin tree = PickTree();
  draft.lib->ReplaceRoot(repository.lib, tree.lib);
  draft.model->ReplaceRoot(repository.model, tree.model);
}

void World::InspectDraft() {
  DraftTwin& draft = PickDraft();
  const Model::Text path = PickPath();
  if (m_choices.OneIn(2)) {
    ExpectSame("text", FromLib(draft.lib->GetData()), draft.model->GetData());
    ExpectSame("id", FromLib(draft.lib->GetId()), draft.model->GetId());
    ExpectSame("packed form", FromLib(draft.lib->GetPackedData()), draft.model->GetPackedData());
  }
  const Model::Handle<Model::Tree> root = draft.model->GetRoot();
  const Model::Components components = Model::SplitPath(path);
  const auto blob = draft.lib->GetBlob(ToLib(path));
  const auto tree = draft.lib->GetTree(ToLib(path));
  ExpectSameBool("GetBlob", blob, root && root->GetDeepBlob(components));
  ExpectSameBool("GetTree", tree, root && root->GetDeepTree(components));
  if (blob) ExpectSame("blob", FromLib(blob->GetId()), root->GetDeepBlob(components)->GetId());
  if (tree) {
    ExpectSame("tree", FromLib(tree->GetRootId()), root->GetDeepTree(components)->GetId());
    if (m_choices.OneIn(3)) {
      m_choices.Of(m_commitTrees) = {*tree, Model::CommitTree(root->GetDeepTree(components))};
    }
  }
}

void World::CommitInto(RepositoryTwin& repository, DraftTwin& draft, bool hold) {
  CommitTwin stored;
  stored.lib = repository.lib->DoCommit(*draft.lib);
  stored.model = repository.model->DoCommit(*draft.model, StampOf(*draft.lib));
  ExpectSameBool("DoCommit", stored.lib, static_cast<bool>(stored.model));
  if (!stored) return;
  ExpectSame("stored id", FromLib(stored.lib->GetId()), stored.model->GetId());
  ExpectSame("draft's id", FromLib(draft.lib->GetId()), draft.model->GetId());
  if (hold) Hold(stored);
}

void World::CommitDraft() { CommitInto(PickRepository(), PickDraft(), m_choices.OneIn(3)); }

void World::CommitQuickly() {
  RepositoryTwin& repository = PickRepository();
  const bool amend = m_choices.OneIn(8);
  DraftTwin draft;
  draft.lib = std::make_unique<TalVcs::Commit>(repository.lib.get(), amend);
  draft.model = std::make_unique<Model::Commit>(repository.model.get(), amend);
  const Model::Text words = PickWords();
  draft.lib->SetDescription(ToLib(words));
  draft.model->SetDescription(words);
  do {
    EditDraft(draft, {repository.lib.get(), repository.model.get()});
  } while (m_choices.OneIn(2));
  CommitInto(repository, draft, m_choices.OneIn(8));
}

// Takes write access to a commit that a host holds, and stores what comes of it.
void World::RewriteHeldCommit() {
  if (m_commits.empty()) return;
  CommitTwin& held = m_choices.Of(m_commits);
  const Model::Text words = PickWords();
  if (m_choices.OneIn(3)) {
    const CommitTwin parent = PickCommit();
    held.lib.write()->SetParent(parent.lib);
    held.model.write()->SetParent(parent.model);
  }
  held.lib.write()->SetDescription(ToLib(words));
  held.model.write()->SetDescription(words);
  if (m_choices.OneIn(2)) return;
  RepositoryTwin& repository = PickRepository();
  held.lib = repository.lib->SyncWithStorage(held.lib);
  held.model = repository.model->SyncWithStorage(held.model);
}

void World::LinkCommits() {
  const auto repository = PickRepositoryOrNull();
  Twin<std::vector<TalVcs::cow_ptr<TalVcs::Commit>>, std::vector<Model::Handle<Model::Commit>>>
      list;
  while (!m_choices.OneIn(4)) {
    const CommitTwin commit = PickCommit();
    list.lib.push_back(commit.lib);
    list.model.push_back(commit.model);
  }
  const bool lib = TalVcs::Commit::MakeCommitLinksInOrder(list.lib, repository.lib);
  ExpectSameBool("MakeCommitLinksInOrder", lib,
                 Model::Commit::MakeCommitLinksInOrder(list.model, repository.model));
  for (std::size_t i = 0; i < list.lib.size(); ++i) {
    ExpectSameBool("linked commit", list.lib[i], static_cast<bool>(list.model[i]));
    if (list.lib[i]) {
      ExpectSame("linked commit", FromLib(list.lib[i]->GetId()), list.model[i]->GetId());
    }
  }
  if (!list.lib.empty()) Hold(CommitTwin{list.lib.front(), list.model.front()});
}

// Brings an object from anywhere into a storage, or a copy that is another instance.
void World::SyncObject() {
  RepositoryTwin& repository = PickRepository();
  const bool copy = m_choices.OneIn(2);
  switch (m_choices.Below(4)) {
    case 0: {
      const Model::Bytes content = PickContent();
      const TalVcs::cow_ptr<TalVcs::Blob> blob(
          TalVcs::dll_wrapped_shared(std::make_unique<TalVcs::Blob>(BlobOf(content))));
      return Hold(BlobTwin{
          repository.lib->SyncWithStorage(blob),
          repository.model->SyncWithStorage(Model::Handle<Model::Blob>(Model::Blob(content)))});
    }
    case 1: {
      TreeTwin tree = PickTree();
      if (tree && copy) {
        tree.lib.write();
        tree.model.write();
      }
      return Hold(TreeTwin{repository.lib->SyncWithStorage(tree.lib),
                           repository.model->SyncWithStorage(tree.model)});
    }
    case 2: {
      const DraftTwin& draft = PickDraft();
      const TalVcs::cow_ptr<TalVcs::Commit> commit(
          TalVcs::dll_wrapped_shared(std::make_unique<TalVcs::Commit>(*draft.lib)));
      return Hold(CommitTwin{
          repository.lib->SyncWithStorage(commit),
          repository.model->SyncWithStorage(Model::Handle<Model::Commit>(*draft.model))});
    }
    default: {
      CommitTwin commit = PickCommit();
      if (commit && copy) {
        commit.lib.write();
        commit.model.write();
      }
      return Hold(CommitTwin{repository.lib->SyncWithStorage(commit.lib),
                             repository.model->SyncWithStorage(commit.model)});
    }
  }
}

}  // namespace ModelTest
