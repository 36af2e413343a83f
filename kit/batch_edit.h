#pragma once

#include <kit/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/id.h>
#include <talvcs/objects/tree.h>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

class EditDraft;

/// A list of edits by path, which are made together.
///
/// The result has the same id as after the same edits, made one by one in their order, on a `Tree`
/// or a `Commit`. But each directory is made once, and no directory that a later edit of the list
/// changes enters the storage. The blobs and trees that are added are stored in both cases.
///
/// A value, which can be applied any number of times. It shares the bytes of what is added.
///
/// Threads: a list and what it is applied to belong to one thread at a time. While edits are made
/// on several threads (`SetThreadCount`), no other thread may use a blob that was added.
class TALVCS_KIT_API BatchEdit {
 public:
  BatchEdit();
  BatchEdit(const BatchEdit& other);
  BatchEdit(BatchEdit&& other) noexcept;
  BatchEdit& operator=(const BatchEdit& other);
  BatchEdit& operator=(BatchEdit&& other) noexcept;
  ~BatchEdit();

  /// Append an edit to the list, which does what the operation of `Tree` with that name does.
  void AddBlob(TalStringViewT<WideChar> path, Blob blob);
  void AddTree(TalStringViewT<WideChar> path, const Tree& tree);
  void AddObject(TalStringViewT<WideChar> path, const Id& id);
  void RemoveObject(TalStringViewT<WideChar> path);
  /// Appends an edit that puts the entry of the tree `from` at `path` to the same path, as
  /// `AddObject` with its id would. The edit fails if `from` has no such entry. An object that
  /// wasn't read stays unread if `from` and the edited tree are of one store.
  void CopyObject(TalStringViewT<WideChar> path, const Tree& from);

  /// Returns the number of edits in the list.
  std::size_t GetCount() const noexcept;
  /// Removes all edits from the list.
  void Clear() noexcept;

  /// Sets how many threads may compute the ids of added blobs while edits are made; 1 at first, and
  /// 0 counts as 1. All of them have ended when `ApplyTo` returns, and the result is the same.
  /// Worth it where many megabytes are added at once.
  void SetThreadCount(unsigned count) noexcept;

  /// Makes the edits on `tree`, which isn't stored itself. An edit that fails changes nothing, and
  /// the others are made. Returns how many edits took effect: all, if that equals `GetCount`.
  std::size_t ApplyTo(IRepository* repository, Tree& tree) const;

  /// Makes the edits on the tree of `commit`, and stores the new root.
  std::size_t ApplyTo(IRepository* repository, Commit& commit) const;

 private:
  struct TALVCS_KIT_NO_EXPORT Edit;

  template <class T>
  TALVCS_KIT_NO_EXPORT void Append(TalStringViewT<WideChar> path, T&& what);
  TALVCS_KIT_NO_EXPORT static std::optional<bool> Apply(IRepository& repository, EditDraft& draft,
                                                        const Edit& edit);
  TALVCS_KIT_NO_EXPORT static void ComputeIds(std::span<const Edit> edits);
  TALVCS_KIT_NO_EXPORT void ComputeIdsOnAllThreads() const;
  template <class Target>
  std::size_t ApplyOneByOne(IRepository* repository, Target& target) const;
  TALVCS_KIT_NO_EXPORT std::optional<std::size_t> ApplyTo(IRepository& repository,
                                                          EditDraft& draft) const;

  // In pieces that never grow: to move an edit costs as much as to append it.
  std::vector<std::vector<Edit>> m_edits;
  unsigned m_threadCount = 1;
};

}  // namespace TalVcs::Kit
