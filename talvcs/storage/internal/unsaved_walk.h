#pragma once

#include <talvcs/storage/internal/store_source.h>

#include <unordered_set>
#include <variant>
#include <vector>

namespace TalVcs {

/// Visits what a save to the store of a source has to write: everything reachable that isn't known
/// to be there, each object after all that it names.
///
///   head (new) -> commit (new) -> absent parent           the store has it, and all below it
///              -> root (new) -> blob (new), absent entries, subtrees that were read
class UnsavedWalk {
 public:
  /// An object that has to be written.
  using Object = std::variant<cow_ptr<Commit>, cow_ptr<Tree>, cow_ptr<Blob>>;

  explicit UnsavedWalk(const StoreSource& source) : m_source(source) {}

  /// Appends what `head` reaches and no earlier head did. Reads objects of other stores alone.
  void Visit(const cow_ptr<Commit>& head);

  const std::vector<Object>& Found() const noexcept { return m_found; }
  std::vector<Object> Take() noexcept { return std::move(m_found); }

 private:
  struct Task {
    Object object;
    bool isOpen;  // what it names was visited
  };

  template <class T>
  void Push(const cow_ptr<T>& object);
  void PushNamed(const Commit& commit);
  void PushNamed(const Tree& tree);
  void PushNamed(const Blob&) {}

  const StoreSource& m_source;
  std::vector<Task> m_tasks;
  std::unordered_set<Id> m_visited;
  std::vector<Object> m_found;
};

}  // namespace TalVcs
