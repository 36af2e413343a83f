#include "objects.h"

namespace Model {

const Id& Object::GetId() const {
  if (!m_id) m_id = Sha256Hex(GetPackedData());
  return *m_id;
}

const Bytes& Object::GetPackedData() const {
  if (!m_packedData) {
    m_packedData = Type() + " " + std::to_string(GetData().size()) + '\0' + GetData();
  }
  return *m_packedData;
}

void Object::ResetState() {
  m_id.reset();
  m_packedData.reset();
}

const Id& Entry::GetId() const { return blob ? blob->GetId() : tree->GetId(); }

std::optional<Bytes> DataBehindHeader(const std::optional<Bytes>& stream, const Bytes& type) {
  if (!stream) return std::nullopt;
  const std::size_t end = stream->find('\0');
  if (end == Bytes::npos || !stream->starts_with(type)) return std::nullopt;
  return stream->substr(end + 1);
}

Handle<Blob> Blob::Parse(const std::optional<Bytes>& stream) {
  const std::optional<Bytes> data = DataBehindHeader(stream, "blob");
  return data ? Handle<Blob>(Blob(*data)) : Handle<Blob>();
}

Handle<Blob> CommitTree::AddBlob(Repository* repository, const Text& path, const Blob& blob) {
  return m_root.write()->AddBlob(repository, path, blob);
}

Handle<Tree> CommitTree::AddTree(Repository* repository, const Text& path, const Tree& tree) {
  return m_root.write()->AddTree(repository, path, tree);
}

Entry CommitTree::AddObject(Repository* repository, const Text& path, const Id& id) {
  return m_root.write()->AddObject(repository, path, id);
}

bool CommitTree::RemoveObject(Repository* repository, const Text& path) {
  return m_root && m_root.write()->RemoveObject(repository, path);
}

std::vector<Text> CommitTree::GetAllBlobPaths() const {
  return m_root ? m_root->GetDeepBlobPaths() : std::vector<Text>();
}

std::vector<Text> CommitTree::GetBlobDiffs(const Handle<CommitTree>& other) const {
  const Handle<Tree> otherRoot = other ? other->GetRoot() : Handle<Tree>();
  if (m_root) return m_root->GetDeepBlobDiffs(otherRoot);
  return otherRoot ? otherRoot->GetDeepBlobPaths() : std::vector<Text>();
}

}  // namespace Model
