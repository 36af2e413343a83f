#pragma once

#include <talvcs/objects/blob.h>
#include <talvcs/objects/tree.h>
#include <talvcs/repository/irepository.h>

#include <utility>

namespace TalVcs {

/// The repository that a load fills.
class LoadTarget {
 public:
  explicit LoadTarget(IRepository& repository) noexcept : m_repository(repository) {}

  IRepository& GetRepository() const noexcept { return m_repository; }

  cow_ptr<Blob> FindBlob(const Id& id) const { return m_repository.GetBlobFromStorage(id); }
  cow_ptr<Tree> FindTree(const Id& id) const { return m_repository.GetTreeFromStorage(id); }

  template <class T>
  cow_ptr<T> Store(cow_ptr<T> object) {
    return m_repository.SyncWithStorage(std::move(object));
  }

  /// True if the repository returns `stored` for `id`, so that a load need not remember it.
  /// `stored`, which may be null, is the result of `Store`.
  bool Returns(const cow_ptr<Blob>& stored, const Id& id) {
    if (stored && !m_returnsObjects) m_returnsObjects = static_cast<bool>(FindBlob(id));
    return m_returnsObjects && stored && stored->GetId() == id;
  }
  bool Returns(const cow_ptr<Tree>& stored, const Id& id) {
    if (stored && !m_returnsObjects) m_returnsObjects = static_cast<bool>(FindTree(id));
    return m_returnsObjects && stored && stored->GetId() == id;
  }

 private:
  IRepository& m_repository;
  // True once the repository has returned an object for an id that was stored. A repository without
  // a storage never does.
  bool m_returnsObjects = false;
};

}  // namespace TalVcs
