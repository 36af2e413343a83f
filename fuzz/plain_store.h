#pragma once

#include <tests/model/plain/store.h>

#include <optional>
#include <vector>

namespace Fuzz {

/// What a directory store must contain: its streams in a map, and a transaction on a copy of it.
class PlainStore {
 public:
  explicit PlainStore(const Model::Text& rootPath);

  const Model::Text& StoragePath() const { return m_storagePath; }
  Model::Text ObjectPath(const Model::Id& id) const;
  Model::Text BranchPath(const Model::Text& name) const;

  /// Returns the id of an object whose path this is, nothing for other paths.
  std::optional<Model::Id> ObjectOf(const Model::Text& path) const;

  void Put(const Model::Text& path, const Model::Bytes& bytes);
  void RemoveBelow(const Model::Text& folder);
  void Commit();
  void Abandon() { m_next.reset(); }

  const Model::Store& Streams() const { return m_streams; }

  /// True if all of the store stands below `folder`.
  bool IsWhole(const Model::Text& folder) const;

  /// Returns what a listing of the folder has to give.
  std::vector<Model::Text> List(const Model::Text& folder) const;

  /// Returns the paths of the objects whose bytes have another digest.
  std::vector<Model::Text> Damaged() const;

 private:
  Model::Store& Writing();

  Model::Text m_rootPath;
  Model::Text m_storagePath;
  Model::Store m_streams;
  std::optional<Model::Store> m_next;
};

}  // namespace Fuzz
