#pragma once

#include <talvcs/directory/internal/object_source.h>
#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/storage/internal/read_ahead.h>
#include <talvcs/storage/object_reader.h>
#include <talvcs/storage/objects_storage.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace TalVcs {

/// The objects that a storage on demand and its clones have read, and how to read the others.
///
/// An id has one instance: a new one that some storage here holds, or else the one in the tables
/// below. These tables hold every object that was read, so that none is ever edited in place. When
/// the last storage ends they are emptied, which undoes the circle of source, tables, directories
/// and source; from then on links are read without being remembered.
class StoreSource final : public ObjectSource {
 public:
  /// The objects of a storage that aren't known to be in the store.
  struct NewObjects {
    CommitTable commits;
    TreeTable trees;
    BlobTable blobs;
  };

  explicit StoreSource(std::shared_ptr<IObjectReader> reader);

  /// Register a storage, by what is new in it, and its end.
  void Attach(const NewObjects& news);
  void Detach(const NewObjects& news) noexcept;

  cow_ptr<Object> OpenEntry(EntryKind kind, const Id& id, Place place) override;
  cow_ptr<Tree> OpenRoot(const Id& id) override;
  cow_ptr<Commit> OpenParent(const Id& id, const Id& child) override;
  void ExpectTrees(std::span<const ExpectedTree> trees, bool deep) override;

  /// Announce that the caller opens these objects next. One read serves them all.
  void ExpectCommits(std::span<const Id> ids);
  void ExpectBlobs(std::span<const Id> ids);
  /// Returns the commit that a branch names.
  cow_ptr<Commit> OpenHead(const Id& id);

  /// Return the instance of that id if the store has it and it has that type, otherwise null; look
  /// into memory alone if `inHand` is true.
  cow_ptr<Commit> FindCommit(const Id& id, bool inHand);
  cow_ptr<Tree> FindTree(const Id& id, bool inHand);
  cow_ptr<Blob> FindBlob(const Id& id, bool inHand);

  /// Return whether an object of that id was read or saved and is in memory.
  bool Has(const Commit& commit) const { return m_commits.contains(commit.GetId()); }
  bool Has(const Tree& tree) const { return m_trees.contains(tree.GetId()); }
  bool Has(const Blob& blob) const { return m_blobs.contains(blob.GetId()); }
  /// Return whether this very instance was read or saved.
  bool HasInstance(const cow_ptr<Commit>& commit) const { return IsIn(m_commits, commit); }
  bool HasInstance(const cow_ptr<Tree>& tree) const { return IsIn(m_trees, tree); }
  bool HasInstance(const cow_ptr<Blob>& blob) const { return IsIn(m_blobs, blob); }
  /// Say that the object is in the store from now on.
  void AddSaved(cow_ptr<Commit> commit);
  void AddSaved(cow_ptr<Tree> tree);
  void AddSaved(cow_ptr<Blob> blob);

  /// Forgets the objects that no caller holds, and what was read ahead. Links from there, and from
  /// the new objects in the two tables, to objects of the store become absent.
  void Trim(const CommitTable& newCommits, const TreeTable& newTrees);

 private:
  class Received;

  template <class T>
  using Table = std::unordered_map<Id, cow_ptr<T>>;

  template <class T>
  static bool IsIn(const Table<T>& table, const cow_ptr<T>& object) {
    const auto found = table.find(object->GetId());
    return found != table.end() && found->second == object;
  }
  Buffer Read(const Id& id, ReadAhead ahead, std::uint64_t history);
  std::optional<Buffer> ReadIfStored(const Id& id);
  std::uint64_t WindowAfter(const Id& child, const Id& id);
  /// Returns the instance of an object that the store is known to have, if it is in memory.
  template <class T>
  cow_ptr<T> FindStored(Table<T>& table, const Id& id);
  template <class T>
  void Expect(Table<T>& table, std::span<const Id> ids);
  template <class T>
  cow_ptr<T> Remember(Table<T>& table, const Id& id, cow_ptr<T> object);

  cow_ptr<Tree> OpenTree(const Id& id, Place place);
  cow_ptr<Tree> RememberTree(const Id& id, const Buffer& packed, Place place);
  cow_ptr<Commit> RememberCommit(const Id& id, const Buffer& packed);
  cow_ptr<Blob> RememberBlob(const Id& id, const Buffer& packed);
  void CloseLinks(const Commit& commit);
  void CloseLinks(const Tree& tree);
  bool Holds(EntryKind kind, const Object& object) const;

  std::shared_ptr<IObjectReader> m_reader;
  std::vector<const NewObjects*> m_storages;
  CommitTable m_commits;
  TreeTable m_trees;
  BlobTable m_blobs;
  // The directory that was read last at each place: other states have much in common with it.
  std::unordered_map<Place, cow_ptr<Tree>> m_latest;
  ReadAheadCache m_ahead;

  /// A walk along a history: the commit that it opened last, and how many to read the next time.
  struct Run {
    Id last;
    std::uint64_t window = 1;
  };
  std::array<Run, 4> m_runs;
  std::size_t m_nextRun = 0;
};

}  // namespace TalVcs
