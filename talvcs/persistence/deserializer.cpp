#include <talvcs/persistence/deserializer.h>

#include <talvcs/foundation/helpers.h>
#include <talvcs/objects/internal/commit_loader.h>
#include <talvcs/repository/irepository.h>

#include <utility>

// A branch is read from its head on, newest commit first and each commit's tree before its parent,
// and enters the storage oldest first, since the id of a commit depends on that of its parent.

namespace TalVcs {

/// One call of `Deserialize`.
class Deserializer::Load {
 public:
  Load(IRepository& target, CommitLoader::Getter getter)
      : repository(target), commits(target, getter) {}

  IRepository& repository;
  CommitLoader commits;
};

Deserializer::Deserializer(IBlobReader* blobReader, const TalStringT<WideChar>& rootPath)
    : reader(blobReader), pathBuilder(rootPath) {}

Deserializer::~Deserializer() = default;

bool Deserializer::Deserialize(IRepository* repository) {
  if (repository == nullptr || reader == nullptr) return false;
  const auto open = [](void* self, const Id& id) {
    return static_cast<Deserializer*>(self)->GetObjectStream(id);
  };
  Load load(*repository, CommitLoader::Getter(this, open));
  bool complete = true;
  for (const auto& name : GetBranches()) complete = DeserializeRef(load, name) && complete;
  return complete;
}

bool Deserializer::DeserializeRef(Load& load, const TalStringT<WideChar>& name) {
  StreamIO stream = reader->OpenBlob(pathBuilder.GetBranch(name));
  const TalStringT<char> text = Helpers::StreamToStringA(stream);
  if (text.IsEmpty()) return false;
  const Id head_id{TalStringT<WideChar>(text)};
  if (!DeserializeBranch(load, head_id)) return false;
  IRepository& repository = load.repository;
  if (!repository.BranchExist(name) && !repository.CreateBranch(name, nullptr)) return false;
  return repository.MoveBranchTo(name, repository.GetCommitFromStorage(head_id));
}

bool Deserializer::DeserializeBranch(Load& load, const Id& headId) {
  std::vector<cow_ptr<Commit>> chain;
  load.commits.BeginHistory();
  for (Id current = headId; !current.View().IsEmpty();) {
    Id parent_id;
    cow_ptr<Commit> commit = load.commits.Load(current, parent_id);
    if (commit) chain.push_back(std::move(commit));
    current = std::move(parent_id);
  }
  if (!Commit::MakeCommitLinksInOrder(chain, &load.repository)) return false;
  if (load.repository.GetCommitFromStorage(headId)) load.commits.ForgetHistory();
  return true;
}

StreamIO Deserializer::GetObjectStream(const Id& id) const {
  if (id.View().IsEmpty() || reader == nullptr) return StreamIO(MemStream::Create(0));
  return reader->OpenBlob(pathBuilder.GetObjectW(id));
}

std::vector<TalStringT<WideChar>> Deserializer::GetBranches() {
  if (reader == nullptr) return {};
  return reader->ListBlobs(pathBuilder.GetBranchesPath());
}

}  // namespace TalVcs
