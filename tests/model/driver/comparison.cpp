#include "comparison.h"

namespace ModelTest {
namespace {

// Compares the keys, the numbers of users and, by `compareObjects`, the objects.
template <class LibTable, class ModelTable, class CompareObjects>
void CompareTables(const LibTable& lib, const ModelTable& model, bool countsAreExact,
                   const CompareObjects& compareObjects) {
  for (const auto& [libId, object] : lib) {
    const auto found = model.find(FromLib(libId));
    if (found == model.end()) throw Mismatch("only the library has " + FromLib(libId));
    const long libUsers = object.use_count();
    const long users = found->second.UseCount();
    if (countsAreExact ? libUsers != users : (libUsers > 1) != (users > 1)) {
      throw Mismatch("users of " + found->first + ": library " + std::to_string(libUsers) +
                     ", model " + std::to_string(users));
    }
    compareObjects(object, found->second);
  }
  if (lib.size() == model.size()) return;
  for (const auto& [id, object] : model) {
    if (!lib.contains(ToLibId(id))) throw Mismatch("only the model has " + id);
  }
}

}  // namespace

bool Comparison::IsNewPair(std::string_view what, const void* lib, const void* model) {
  const auto [knownModel, newLib] = m_modelOf.emplace(lib, model);
  const auto [knownLib, newModel] = m_libOf.emplace(model, lib);
  if (knownModel->second != model || knownLib->second != lib) {
    throw Mismatch(std::string(what) + ": other handles share it in the library than in the model");
  }
  return newLib && newModel;
}

void Comparison::Repositories(const RepositoryTwin& twin) {
  ExpectSame("current branch", FromLib(twin.lib->GetCurentBranch()),
             twin.model->GetCurrentBranch());
  const TalVcs::IObjectsStorage* lib = std::as_const(*twin.lib).GetStorage();
  const Model::Storage* model = twin.model->GetStorage();
  ExpectSameBool("storage", lib, model != nullptr);
  if (lib == nullptr) return;
  ExpectSame<std::uint64_t>("commit count", twin.lib->GetCommitCount(), model->commits.size());
  ExpectSame<std::uint64_t>("tree count", twin.lib->GetTreeCount(), model->trees.size());
  ExpectSame<std::uint64_t>("blob count", twin.lib->GetBlobCount(), model->blobs.size());
  // Trees may share the handles on their entries, so that only their being used can be compared.
  CompareTables(lib->GetCommits(), model->commits, true,
                [this](const auto& a, const auto& b) { Commits(a, b); });
  CompareTables(lib->GetTrees(), model->trees, false,
                [this](const auto& a, const auto& b) { Trees(a, b); });
  CompareTables(lib->GetBlobs(), model->blobs, false,
                [this](const auto& a, const auto& b) { Blobs(a, b); });
  ExpectSame<std::uint64_t>("branch count", lib->GetRefs().size(), model->refs.size());
  for (const auto& [branch, head] : lib->GetRefs()) {
    const auto found = model->refs.find(FromLib(branch));
    if (found == model->refs.end()) throw Mismatch("only the library has " + Show(FromLib(branch)));
    Commits(head, found->second);
  }
}

void Comparison::Commits(const TalVcs::cow_ptr<TalVcs::Commit>& lib,
                         const Model::Handle<Model::Commit>& model) {
  TalVcs::cow_ptr<TalVcs::Commit> libCommit = lib;
  const Model::Commit* commit = model.get();
  while (libCommit || commit != nullptr) {
    ExpectSameBool("commit", libCommit, commit != nullptr);
    if (!IsNewPair("commit", libCommit.get(), commit)) return;
    ExpectSame("id of a commit", FromLib(libCommit->GetId()), commit->GetId());
    Drafts(*libCommit, *commit);
    libCommit = libCommit->GetParent();
    commit = commit->GetParent().get();
  }
}

void Comparison::Drafts(const TalVcs::Commit& lib, const Model::Commit& model) {
  ExpectSame("description", FromLib(lib.GetDesciption()), model.GetDescription());
  ExpectSame("author", FromLib(lib.GetAuthorName()), model.GetAuthorName());
  ExpectSame("e-mail", FromLib(lib.GetAuthorEmail()), model.GetAuthorEmail());
  ExpectSame("time", lib.GetCommitTime().ticks, model.GetStamp().time);
  ExpectSame("bias", static_cast<std::uint64_t>(lib.GetCommitTimezoneBias().ticks),
             static_cast<std::uint64_t>(model.GetStamp().bias));
  ExpectSameBool("amending", lib.IsAmend(), model.IsAmend());
  ExpectSameBool("parent", lib.GetParent(), static_cast<bool>(model.GetParent()));
  const auto tree = lib.GetTree();
  ExpectSameBool("commit tree", tree, static_cast<bool>(model.GetTree()));
  Trees(tree ? tree->GetRoot() : nullptr, model.GetRoot());
}

void Comparison::Trees(const TalVcs::cow_ptr<TalVcs::Tree>& lib,
                       const Model::Handle<Model::Tree>& model) {
  ExpectSameBool("tree", lib, static_cast<bool>(model));
  if (!lib || !IsNewPair("tree", lib.get(), model.get())) return;
  TreeContents(*lib, *model);
}

void Comparison::TreeContents(const TalVcs::Tree& lib, const Model::Tree& model) {
  ExpectSame("id of a tree", FromLib(lib.GetId()), model.GetId());
  ExpectSame("blobs of a tree", FromLib(lib.GetLocalBlobPaths()), model.GetLocalBlobPaths());
  ExpectSame("subtrees of a tree", FromLib(lib.GetLocalSubtreePaths()),
             model.GetLocalSubtreePaths());
  for (const Model::Text& name : model.GetLocalBlobPaths()) {
    Blobs(lib.GetLocalBlob(ToLib(name)), model.GetLocalBlob(name));
  }
  for (const Model::Text& name : model.GetLocalSubtreePaths()) {
    Trees(lib.GetLocalTree(ToLib(name)), model.GetLocalTree(name));
  }
}

void Comparison::Blobs(const TalVcs::cow_ptr<TalVcs::Blob>& lib,
                       const Model::Handle<Model::Blob>& model) {
  ExpectSameBool("blob", lib, static_cast<bool>(model));
  if (!lib || !IsNewPair("blob", lib.get(), model.get())) return;
  ExpectSame("id of a blob", FromLib(lib->GetId()), model->GetId());
  ExpectSame("bytes of a blob", FromLib(lib->GetData()), model->GetData());
}

void CompareListings(const TreeTwin& a, const TreeTwin& b) {
  if (!a) return;
  const TalVcs::Tree& lib = *a.lib;
  const Model::Tree& model = *a.model;
  ExpectSame("packed tree", FromLib(lib.GetPackedData()), model.GetPackedData());
  ExpectSame("object count", lib.GetLocalObjectCount(), model.GetLocalObjectCount());
  ExpectSame("blob count", lib.GetLocalBlobCount(), model.GetLocalBlobCount());
  ExpectSame("deep blob count", lib.GetDeepBlobCount(), model.GetDeepBlobCount());
  ExpectSameBool("emptiness", lib.IsEmpty(), model.IsEmpty());
  ExpectSame("object names", FromLib(lib.GetLocalObjectPaths()), model.GetLocalObjectPaths());
  ExpectSame("blob paths", FromLib(lib.GetDeepBlobPaths()), model.GetDeepBlobPaths());
  ExpectSame("blob diffs", FromLib(lib.GetLocalBlobDiffs(b.lib)), model.GetLocalBlobDiffs(b.model));
  ExpectSame("tree diffs", FromLib(lib.GetLocalTreeDiffs(b.lib)), model.GetLocalTreeDiffs(b.model));
  ExpectSame("deep diffs", FromLib(lib.GetDeepBlobDiffs(b.lib)), model.GetDeepBlobDiffs(b.model));
}

}  // namespace ModelTest
