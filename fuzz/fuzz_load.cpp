// Loads stores of any content, one after another, into one repository, and does the same in the
// model. An input is a byte of options and the stores.

#include "checks.h"
#include "streams.h"
#include "target.h"

#include <tests/model/driver/comparison.h>
#include <tests/model/driver/map_store.h>

#include <map>
#include <utility>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

const Model::Text kRoot = u"root";

/// What a repository held before a load.
class Former {
 public:
  explicit Former(const Repository& repository)
      : m_commits(repository.GetStorage()->GetCommits()),
        m_trees(repository.GetStorage()->GetTrees()),
        m_blobs(repository.GetStorage()->GetBlobs()),
        m_refs(repository.GetStorage()->GetRefs()) {}

  /// Requires that it is all still there, but for the heads of the branches that the store names.
  void CheckKept(const Repository& repository, const std::vector<Model::Text>& named) const {
    const IObjectsStorage& storage = *repository.GetStorage();
    CheckTable(storage.GetCommits(), m_commits);
    CheckTable(storage.GetTrees(), m_trees);
    CheckTable(storage.GetBlobs(), m_blobs);
    for (const auto& [name, head] : m_refs) {
      Require(storage.BranchExist(name), "a load removes no branch");
      const Model::Text text = ModelTest::FromLib(name);
      const bool isNamed = std::find(named.begin(), named.end(), text) != named.end();
      Require(isNamed || storage.GetHead(name) == head, "a load moves only branches of the store");
    }
  }

 private:
  template <class Table>
  static void CheckTable(const Table& now, const Table& former) {
    for (const auto& [id, object] : former) {
      const auto found = now.find(id);
      Require(found != now.end() && found->second == object, "a load leaves objects alone");
    }
  }

  CommitTable m_commits;
  TreeTable m_trees;
  BlobTable m_blobs;
  RefTable m_refs;
};

void Load(const ModelTest::RepositoryTwin& repository, Model::Store& streams) {
  const std::vector<Model::Text> branches = Model::BranchNames(streams, Model::BranchesPath(kRoot));
  bool whole = false;
  {
    const Former former(*repository.lib);
    ModelTest::MapStore reader(streams);
    whole = Deserializer(&reader, ModelTest::ToLib(kRoot)).Deserialize(repository.lib.get());
    // A stream can be named as a commit, as a tree and as a blob.
    Require(reader.GetMostReads() <= 3, "a load reads a stream once for each kind of object");
    former.CheckKept(*repository.lib, branches);
  }
  ModelTest::ExpectSameBool("Deserialize", whole,
                            Model::Deserialize(streams, kRoot, repository.model.get()));
  bool everyHead = true;
  for (const Model::Text& name : branches) {
    const cow_ptr<Commit> head = repository.lib->GetHead(ModelTest::ToLib(name));
    const Model::Text path = Model::JoinPath(Model::BranchesPath(kRoot), name);
    const bool came = head && ModelTest::FromLib(head->GetId()) == Model::ReadId(streams.at(path));
    everyHead = everyHead && came;
  }
  Require(whole == everyHead, "a load is whole exactly if each branch has the head it names");
}

// Makes the current branch one that no store can name.
void DetachCurrentBranch(const ModelTest::RepositoryTwin& repository) {
  repository.lib->CreateBranch(TAL_WIDE("\xFFFF"), nullptr);
  repository.model->CreateBranch(u"\xFFFF", {});
  repository.lib->Checkout(TAL_WIDE("\xFFFF"));
  repository.model->Checkout(u"\xFFFF");
  repository.lib->RemoveBranch(TAL_WIDE("\xFFFF"));
  repository.model->RemoveBranch(u"\xFFFF");
}

void Compare(const ModelTest::RepositoryTwin& repository) {
  ModelTest::Comparison().Repositories(repository);
  Fuzz::CheckObjects(*repository.lib);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  Fuzz::StreamWriter writer;
  const std::uint8_t options = input.Byte();
  const ModelTest::RepositoryTwin repository = Fuzz::NewRepository();
  if ((options & 1) != 0) DetachCurrentBranch(repository);
  while (!input.IsAtEnd()) {
    Model::Store streams = Fuzz::ReadStore(input, writer, kRoot);
    Load(repository, streams);
    Compare(repository);
    if ((options & 2) != 0) {
      repository.lib->UpdateStorage();
      repository.model->UpdateStorage();
      Compare(repository);
    }
  }
  if ((options & 4) != 0) {
    repository.lib->DeleteCommits(repository.lib->GetHead(TAL_WIDE("a")));
    repository.model->DeleteCommits(repository.model->GetHead(u"a"));
    Compare(repository);
  }
  if ((options & 8) != 0) {
    repository.lib->SimplifyCommitGraph(true);
    repository.model->SimplifyCommitGraph(true);
    if (repository.model->IsOrderUnknown()) return 0;
    Compare(repository);
  }
  Fuzz::CheckSaving(*repository.lib);
  return 0;
}
