#pragma once

#include <talvcs/directory/internal/object_source.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>

namespace TalVcs {

/// Takes the place of a parent that isn't in memory: its id and where to read it. Only commits hold
/// one; no caller ever gets it.
class AbsentCommit final : public Commit {
 public:
  AbsentCommit(const Id& id, ObjectSource& source);

  const ObjectSource* Source() const noexcept { return m_source.get(); }
  /// Returns the commit, which is read if need be. `child` is the id of the commit that asks.
  cow_ptr<Commit> Open(const Id& child) const { return m_source->OpenParent(CachedId(), child); }

 private:
  SourcePtr m_source;
};

/// Takes the place of a commit's root that isn't in memory, likewise.
class AbsentTree final : public Tree {
 public:
  AbsentTree(const Id& id, ObjectSource& source) : m_source(SourcePtr::Share(&source)) {
    CacheId(id);
  }

  ObjectSource* Source() const noexcept { return m_source.get(); }
  cow_ptr<Tree> Open() const { return m_source->OpenRoot(CachedId()); }

 private:
  SourcePtr m_source;
};

}  // namespace TalVcs
