#include "plain_store.h"

#include <utility>

namespace Fuzz {

namespace {

Model::Text PrefixBelow(const Model::Text& folder) {
  return folder.ends_with(u'/') ? folder : folder + u'/';
}

bool HoldsBranches(const Model::Text& prefix) {
  return prefix == u"refs/heads/" || prefix.ends_with(u"/refs/heads/");
}

}  // namespace

PlainStore::PlainStore(const Model::Text& rootPath)
    : m_rootPath(rootPath), m_storagePath(Model::JoinPath(rootPath, u".vcs")) {}

Model::Text PlainStore::ObjectPath(const Model::Id& id) const {
  return Model::ObjectPath(m_rootPath, id);
}

Model::Text PlainStore::BranchPath(const Model::Text& name) const {
  return Model::JoinPath(Model::BranchesPath(m_rootPath), name);
}

std::optional<Model::Id> PlainStore::ObjectOf(const Model::Text& path) const {
  const Model::Text prefix = m_storagePath + u"/objects/";
  if (!path.starts_with(prefix) || path.size() != prefix.size() + 65) return std::nullopt;
  Model::Text id = path.substr(prefix.size());
  if (id[2] != u'/') return std::nullopt;
  id.erase(2, 1);
  if (id.find_first_not_of(u"0123456789abcdef") != Model::Text::npos) return std::nullopt;
  return Model::EncodeUtf8(id);
}

Model::Store& PlainStore::Writing() {
  if (!m_next) m_next = m_streams;
  return *m_next;
}

void PlainStore::Put(const Model::Text& path, const Model::Bytes& bytes) {
  Writing()[path] = bytes;
}

void PlainStore::RemoveBelow(const Model::Text& folder) {
  std::erase_if(Writing(),
                [&](const auto& stream) { return stream.first.starts_with(PrefixBelow(folder)); });
}

void PlainStore::Commit() {
  if (m_next) m_streams = *std::exchange(m_next, std::nullopt);
}

bool PlainStore::IsWhole(const Model::Text& folder) const {
  return PrefixBelow(m_storagePath).starts_with(PrefixBelow(folder));
}

std::vector<Model::Text> PlainStore::List(const Model::Text& folder) const {
  const Model::Text prefix = PrefixBelow(folder);
  std::vector<Model::Text> objects;
  std::vector<Model::Text> others;
  for (const auto& [path, bytes] : m_streams) {
    if (!path.starts_with(prefix)) continue;
    const Model::Text name = path.substr(prefix.size());
    if (ObjectOf(path)) {
      if (name.size() == 62) objects.push_back(name);
    } else if (HoldsBranches(prefix) || name.find(u'/') == Model::Text::npos) {
      others.push_back(name);
    }
  }
  objects.insert(objects.end(), others.begin(), others.end());
  return objects;
}

std::vector<Model::Text> PlainStore::Damaged() const {
  std::vector<Model::Text> paths;
  for (const auto& [path, bytes] : m_streams) {
    const auto id = ObjectOf(path);
    if (id && Model::Sha256Hex(bytes) != *id) paths.push_back(path);
  }
  return paths;
}

}  // namespace Fuzz
