#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/object_writer.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace TalVcs::Kit {

/// Collects what a store lacks of what the commits of a repository reach, by the public interface
/// of the objects.
///
/// Each history is walked down to a commit that the store has, and each tree only where it differs
/// from its parent's. Where the store has a commit or a folder, it has everything below. Nothing
/// runs in recursion. An object on demand that can't be read throws `ObjectUnavailable`.
class MissingObjects {
 public:
  /// Both must outlive this.
  MissingObjects(IObjectStore& store, Reporter& reporter) : m_store(store), m_reporter(reporter) {}

  /// Collects what `head` reaches. Fails with `Unsupported` for an object that no store could bring
  /// back.
  Status Collect(const std::string& branch, const cow_ptr<Commit>& head);

  /// Writes what was collected, children before what names them.
  Status WriteTo(ObjectWriter& writer);
  std::uint64_t GetCount() const noexcept { return m_objects.size(); }

 private:
  using Name = TalStringT<WideChar>;

  using AnyObject = std::variant<cow_ptr<Commit>, cow_ptr<Tree>, cow_ptr<Blob>>;

  struct Collected {
    AnyObject object;
    Buffer packed;  // empty if it is to be made again
    Id previous;    // as in StoredObject
  };
  /// A tree whose missing subtrees are being collected.
  struct Frame {
    Name name;
    cow_ptr<Tree> tree;
    cow_ptr<Tree> known;  // the tree at this place in the parent, or null
    std::vector<Name> subtrees;
    std::size_t next = 0;
  };

  Result<std::vector<cow_ptr<Commit>>> MissingHistory(const cow_ptr<Commit>& head);
  Status CollectTree(const cow_ptr<Tree>& root, const cow_ptr<Tree>& known);
  Status Open(Name name, cow_ptr<Tree> tree, cow_ptr<Tree> known);
  Status CollectEntry(Frame& frame, const Name& name);
  Status Take(AnyObject object, const Name* name, Id previous);
  Result<std::vector<bool>> AreMissing(const std::vector<Id>& ids);
  Error Refusal(const std::string& path, const std::string& reason) const;
  std::string PathOf(const Name& name) const;

  IObjectStore& m_store;
  Reporter& m_reporter;
  const std::string* m_branch = nullptr;
  std::string m_commit;  // for messages
  IdMap m_known;         // what the store has or was collected
  std::vector<Frame> m_frames;
  std::vector<Collected> m_objects;
  std::uint64_t m_keptBytes = 0;
};

}  // namespace TalVcs::Kit
