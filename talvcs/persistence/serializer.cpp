#include <talvcs/persistence/serializer.h>

#include <talvcs/foundation/helpers.h>

// object := packed                       the packed form of a commit, a blob or a tree
// ref    := id                           64 hexadecimal characters, no line end

namespace TalVcs {

Serializer::Serializer(IBlobWriter* blobWriter, const TalStringT<WideChar>& rootPath)
    : writer(blobWriter), pathBuilder(rootPath) {}

Serializer::~Serializer() = default;

bool Serializer::Serialize(const IObjectsStorage* storage) {
  CleanUpStorage();
  if (storage == nullptr) return true;
  bool complete = SerializeObjects(storage->GetCommits());
  complete = SerializeObjects(storage->GetBlobs()) && complete;
  complete = SerializeObjects(storage->GetTrees()) && complete;
  return SerializeRefs(storage->GetRefs()) && complete;
}

void Serializer::CleanUpStorage() {
  if (writer != nullptr) writer->RemoveStorage(pathBuilder.GetStoragePath());
}

// The packed forms are made for the stream and not kept in the objects.
template <class Table>
bool Serializer::SerializeObjects(const Table& objects) {
  bool complete = true;
  for (const auto& [id, object] : objects) {
    if (!object) continue;
    complete = BuildStream(object->BuildPackedData(), pathBuilder.GetObjectW(id)) && complete;
  }
  return complete;
}

bool Serializer::SerializeRefs(const RefTable& refs) {
  bool complete = true;
  for (const auto& [name, commit] : refs) complete = SerializeRef(name, commit) && complete;
  return complete;
}

bool Serializer::SerializeRef(const TalStringT<WideChar>& name, const cow_ptr<Commit>& commit) {
  if (!commit) return true;
  Buffer text;
  Helpers::AppendToBuffer(text, commit->GetId().View());
  return BuildStream(text, pathBuilder.GetBranch(name));
}

bool Serializer::BuildStream(const Buffer& data, const TalStringT<WideChar>& path) const {
  if (writer == nullptr) return false;
  Stream stream = writer->CreateBlobStream(path);
  data.AppendTo(stream, nullptr);
  stream.SeekToBegin();
  return writer->CommitBlobStream(path, stream);
}

}  // namespace TalVcs
