#include "world.h"

#include "comparison.h"
#include "resolver_twins.h"

namespace ModelTest {
namespace {

template <class LibHandle, class ModelHandle>
void ExpectSameHandle(const std::string& what, const LibHandle& lib, const ModelHandle& model) {
  ExpectSameBool(what, lib, static_cast<bool>(model));
  if (lib) ExpectSame("id from " + what, FromLib(lib->GetId()), model->GetId());
}

}  // namespace

// Edits a tree through a handle, as a host may do, or a tree that it makes.
void World::EditTree() {
  TreeTwin tree = PickTree();
  const auto repository = PickRepositoryOrNull();
  const Model::Text path = PickPath();
  const LibText libPath = ToLib(path);
  switch (m_choices.Below(repository.lib == nullptr ? 5 : 6)) {
    case 0:
      Say("remove " + Show(path));
      ExpectSameBool("RemoveObject", tree.lib.write()->RemoveObject(repository.lib, libPath),
                     tree.model.write()->RemoveObject(repository.model, path));
      break;
    case 1:
    case 2: {
      const TreeTwin child = PickTree();
      if (!child) return;
      Say("add " + child.model->GetId() + " at " + Show(path));
      ExpectSameHandle("AddTree", tree.lib.write()->AddTree(repository.lib, libPath, *child.lib),
                       tree.model.write()->AddTree(repository.model, path, *child.model));
      break;
    }
    case 5: {
      const Model::Id id = PickId();
      Say("add " + id + " at " + Show(path));
      const auto lib = tree.lib.write()->AddObject(repository.lib, libPath, ToLibId(id));
      const Model::Entry entry = tree.model.write()->AddObject(repository.model, path, id);
      ExpectSameBool("AddObject", lib, static_cast<bool>(entry));
      break;
    }
    default: {
      const Model::Bytes content = PickContent();
      Say("add " + Show(content) + " at " + Show(path));
      ExpectSameHandle("AddBlob",
                       tree.lib.write()->AddBlob(repository.lib, libPath, BlobOf(content)),
                       tree.model.write()->AddBlob(repository.model, path, Model::Blob(content)));
      break;
    }
  }
  if (m_choices.OneIn(2)) Hold(tree);
}

void World::EditCommitTree() {
  CommitTreeTwin& tree = m_choices.Of(m_commitTrees);
  const auto repository = PickRepositoryOrNull();
  const Model::Text path = PickPath();
  const LibText libPath = ToLib(path);
  switch (m_choices.Below(repository.lib == nullptr ? 6 : 7)) {
    case 0: {
      const TreeTwin root = PickTree();
      tree = {TalVcs::CommitTree(root.lib), Model::CommitTree(root.model)};
      break;
    }
    case 1: {
      const TreeTwin root = PickTree();
      tree.lib.ReplaceRoot(repository.lib, root.lib);
      tree.model.ReplaceRoot(repository.model, root.model);
      break;
    }
    case 2:
      ExpectSameBool("RemoveObject", tree.lib.RemoveObject(repository.lib, libPath),
                     tree.model.RemoveObject(repository.model, path));
      break;
    case 3: {
      const TreeTwin child = PickTree();
      if (!child) return;
      ExpectSameHandle("AddTree", tree.lib.AddTree(repository.lib, libPath, *child.lib),
                       tree.model.AddTree(repository.model, path, *child.model));
      break;
    }
    case 6: {
      const Model::Id id = PickId();
      ExpectSameBool("AddObject", tree.lib.AddObject(repository.lib, libPath, ToLibId(id)),
                     static_cast<bool>(tree.model.AddObject(repository.model, path, id)));
      break;
    }
    default: {
      const Model::Bytes content = PickContent();
      ExpectSameHandle("AddBlob", tree.lib.AddBlob(repository.lib, libPath, BlobOf(content)),
                       tree.model.AddBlob(repository.model, path, Model::Blob(content)));
      break;
    }
  }
  ExpectSame("root id", FromLib(tree.lib.GetRootId()), tree.model.GetRootId());
  ExpectSameBool("emptiness", tree.lib.IsEmpty(), tree.model.IsEmpty());
  ExpectSame("blob count", tree.lib.GetBlobCount(), tree.model.GetBlobCount());
  ExpectSame("blob paths", FromLib(tree.lib.GetAllBlobPaths()), tree.model.GetAllBlobPaths());
}

void World::CompareTrees() {
  const TreeTwin a = PickTree();
  const TreeTwin b = PickTree();
  CompareListings(a, b);
  CompareListings(b, a);
  const CommitTwin c = PickCommit();
  const CommitTwin d = PickCommit();
  if (c && c.lib->GetTree()) {
    const auto libOther = d ? d.lib->GetTree() : nullptr;
    const auto other = d ? d.model->GetTree() : Model::Handle<Model::CommitTree>();
    ExpectSame("blob diffs of commits", FromLib(c.lib->GetTree()->GetBlobDiffs(libOther)),
               c.model->GetTree()->GetBlobDiffs(other));
  }
  if (!a) return;
  const Model::Text path = PickPath();
  const LibText libPath = ToLib(path);
  const Model::Components components = Model::SplitPath(path);
  ExpectSameHandle("GetDeepBlob", a.lib->GetDeepBlob(libPath), a.model->GetDeepBlob(components));
  ExpectSameHandle("GetDeepTree", a.lib->GetDeepTree(libPath), a.model->GetDeepTree(components));
  const auto id = a.lib->GetIdByPath(libPath);
  const auto modelId = a.model->GetIdByPath(path);
  ExpectSameBool("GetIdByPath", id.has_value(), modelId.has_value());
  if (id) ExpectSame("GetIdByPath", FromLib(*id), *modelId);
  ExpectSameBool("GetLocalObject", a.lib->GetLocalObject(libPath),
                 static_cast<bool>(a.model->GetLocalObject(path)));
}

void World::MergeTrees() {
  const auto repository = PickRepositoryOrNull();
  const TreeTwin left = PickTree();
  const TreeTwin root = PickTree();
  const TreeTwin right = PickTree();
  const Questions questions = {std::make_shared<std::vector<std::string>>(),
                               std::make_shared<std::vector<std::string>>()};
  const ResolversTwin resolvers = MakeResolvers(m_choices, questions);
  const TreeTwin merged = {
      TalVcs::ThreeWayMerge(repository.lib, TalVcs::MergeTrees{left.lib, root.lib, right.lib},
                            resolvers.lib),
      Model::ThreeWayMerge(repository.model, Model::MergeTrees{left.model, root.model, right.model},
                           resolvers.model)};
  if (*questions.lib != *questions.model) throw Mismatch("the resolvers were asked differently");
  ExpectSameHandle("ThreeWayMerge", merged.lib, merged.model);
  if (m_choices.OneIn(3)) Hold(merged);
}

}  // namespace ModelTest
