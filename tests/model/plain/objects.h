#pragma once

#include "handle.h"
#include "text.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace Model {

class Blob;
class Commit;
class Repository;
class Tree;

/// What has an id: keeps the packed form and the id once they were asked for.
class Object {
 public:
  virtual ~Object() = default;
  const Id& GetId() const;
  const Bytes& GetPackedData() const;
  virtual const Bytes& GetData() const = 0;

 protected:
  Object() = default;
  Object(const Object&) = default;
  Object& operator=(const Object&) = default;
  virtual Bytes Type() const = 0;
  virtual void ResetState();

 private:
  mutable std::optional<Id> m_id;
  mutable std::optional<Bytes> m_packedData;
};

class Blob : public Object {
 public:
  explicit Blob(Bytes data) : m_data(std::move(data)) {}
  const Bytes& GetData() const override { return m_data; }

  /// Reads a packed blob; null if the bytes don't begin with a blob's header.
  static Handle<Blob> Parse(const std::optional<Bytes>& stream);

 protected:
  Bytes Type() const override { return "blob"; }

 private:
  Bytes m_data;
};

/// Either a blob or a tree, or nothing.
struct Entry {
  Handle<Blob> blob;
  Handle<Tree> tree;

  explicit operator bool() const { return blob || tree; }
  const Id& GetId() const;
};

/// One load: returns the bytes of the streams of objects, or nothing. A commit that is its own
/// ancestor is unreadable there, and so is a tree that contains itself.
class Load {
 public:
  virtual ~Load() = default;
  virtual std::optional<Bytes> ObjectStream(const Id& id) const = 0;

  std::set<Id> openTrees;
  /// The commits of the present line of history.
  std::set<Id> line;
};

class Tree : public Object {
 public:
  const Bytes& GetData() const override;

  std::uint64_t GetLocalObjectCount() const { return m_blobs.size() + m_trees.size(); }
  std::uint64_t GetLocalBlobCount() const { return m_blobs.size(); }
  std::uint64_t GetDeepBlobCount() const;
  bool IsEmpty() const { return m_blobs.empty() && m_trees.empty(); }

  Handle<Blob> AddBlob(Repository* repository, const Text& path, const Blob& blob);
  Handle<Tree> AddTree(Repository* repository, const Text& path, const Tree& tree);
  Entry AddObject(Repository* repository, const Text& path, const Id& id);
  bool RemoveObject(Repository* repository, const Text& path);

  Handle<Blob> GetLocalBlob(const Text& name) const;
  Handle<Tree> GetLocalTree(const Text& name) const;
  Entry GetLocalObject(const Text& name) const;
  Handle<Blob> GetDeepBlob(const Components& path) const;
  Handle<Tree> GetDeepTree(const Components& path) const;
  Entry GetDeepObject(const Components& path) const;
  std::optional<Id> GetIdByPath(const Text& path) const;

  std::vector<Text> GetLocalBlobPaths() const;
  std::vector<Text> GetLocalSubtreePaths() const;
  std::vector<Text> GetLocalObjectPaths() const;
  std::vector<Text> GetDeepBlobPaths() const;
  std::vector<Text> GetLocalBlobDiffs(const Handle<Tree>& other) const;
  std::vector<Text> GetLocalTreeDiffs(const Handle<Tree>& other) const;
  std::vector<Text> GetDeepBlobDiffs(const Handle<Tree>& other) const;

  /// Reads the tree `id` and all below it, and stores it in `repository`.
  static Handle<Tree> Deserialize(const Id& id, Repository* repository, Load& load);

 protected:
  Bytes Type() const override { return "tree"; }
  void ResetState() override;

 private:
  template <class T>
  Handle<T> AddAt(Repository* repository, const Components& path, const T& object,
                  std::map<Text, Handle<T>> Tree::*table);
  bool RemoveAt(Repository* repository, const Components& path);
  static Handle<Tree> Read(const Id& id, Repository* repository, Load& load);

  std::map<Text, Handle<Blob>> m_blobs;
  std::map<Text, Handle<Tree>> m_trees;
  mutable std::optional<Bytes> m_treeData;
};

class CommitTree {
 public:
  CommitTree() = default;
  explicit CommitTree(Handle<Tree> root) : m_root(std::move(root)) {}

  Handle<Blob> AddBlob(Repository* repository, const Text& path, const Blob& blob);
  Handle<Tree> AddTree(Repository* repository, const Text& path, const Tree& tree);
  Entry AddObject(Repository* repository, const Text& path, const Id& id);
  bool RemoveObject(Repository* repository, const Text& path);
  void ReplaceRoot(Repository* repository, Handle<Tree> tree);

  const Handle<Tree>& GetRoot() const { return m_root; }
  Id GetRootId() const { return m_root ? m_root->GetId() : Id(); }
  std::vector<Text> GetBlobDiffs(const Handle<CommitTree>& other) const;
  std::vector<Text> GetAllBlobPaths() const;
  std::uint64_t GetBlobCount() const { return m_root ? m_root->GetDeepBlobCount() : 0; }
  bool IsEmpty() const { return !m_root || m_root->IsEmpty(); }

 private:
  Handle<Tree> m_root;
};

/// An instant and the offset from UTC, both in ticks of 100 ns.
struct Stamp {
  std::uint64_t time = 0;
  std::int64_t bias = 0;
};

class Commit : public Object {
 public:
  Commit() = default;
  Commit(const Repository* repository, bool amend);
  Commit(const Handle<Commit>& head, bool amend);

  const Bytes& GetData() const override;

  const Handle<Commit>& GetParent() const { return m_parent; }
  const Text& GetDescription() const { return m_description; }
  const Text& GetAuthorName() const { return m_authorName; }
  const Text& GetAuthorEmail() const { return m_authorEmail; }
  const Stamp& GetStamp() const { return m_stamp; }
  const Handle<CommitTree>& GetTree() const { return m_tree; }
  Handle<Tree> GetRoot() const { return m_tree ? m_tree->GetRoot() : Handle<Tree>(); }
  bool IsAmend() const { return m_isAmend; }

  void SetParent(Handle<Commit> parent);
  void SetDescription(const Text& text);
  void SetAuthorName(const Text& text);
  void SetAuthorEmail(const Text& text);
  void SetStamp(const Stamp& stamp);

  Handle<Blob> AddBlob(Repository* repository, const Text& path, const Blob& blob);
  Entry AddObject(Repository* repository, const Text& path, const Id& id);
  bool RemoveObject(Repository* repository, const Text& path);
  void ReplaceRoot(Repository* repository, Handle<Tree> tree);

  static bool MakeCommitLinksInOrder(std::vector<Handle<Commit>>& commits, Repository* repository);

  /// Reads the commit `id`, and its parent's id; the stored commit if there is one.
  static Handle<Commit> Deserialize(const Id& id, Id& parentId, Repository* repository, Load& load);

  void Reset() { ResetState(); }

 protected:
  Bytes Type() const override { return "commit"; }
  void ResetState() override;

 private:
  void RebuildTree(Repository* repository);
  void ReadAuthor(const Bytes& author);

  Handle<CommitTree> m_tree;
  Handle<Commit> m_parent;
  Text m_description;
  Text m_authorName;
  Text m_authorEmail;
  Stamp m_stamp;
  bool m_isAmend = false;
  mutable std::optional<Bytes> m_data;
};

/// Returns the bytes after the header if that begins with `type`, otherwise nothing.
std::optional<Bytes> DataBehindHeader(const std::optional<Bytes>& stream, const Bytes& type);

}  // namespace Model
