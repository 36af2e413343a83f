#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/tree.h>

#include <cstddef>
#include <deque>
#include <unordered_map>
#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// A tree under a list of edits, with the directories that are open in it.
class EditDraft {
 public:
  /// Begins with a copy of `root`. The repository, which must outlive the draft, stores what is
  /// added, and at the end the directories.
  EditDraft(IRepository& repository, const Tree& root);

  /// Put an object at a path, which must outlive the draft. Return false, with nothing changed, for
  /// the empty path.
  bool Add(TalStringViewT<WideChar> path, const Blob& blob);
  bool Add(TalStringViewT<WideChar> path, const Tree& tree);
  /// Puts what stands at a path in another tree at the same path, without reading it where both
  /// trees are of one store. Returns false, with nothing changed, if that is nothing.
  bool Copy(TalStringViewT<WideChar> path, const Tree& from);
  /// Removes what stands at a path, and what that leaves empty. Returns false, with nothing
  /// changed, if nothing stands there.
  bool Remove(TalStringViewT<WideChar> path);
  /// True once an edit failed because its path leads through a hidden directory. The draft is of no
  /// use then.
  bool MetHidden() const noexcept { return m_metHidden; }
  /// Stores the open directories that changed, all but the root, and returns the root.
  Tree Finish();

 private:
  using Components = std::vector<TalStringViewT<WideChar>>;
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  struct Directory {
    Tree tree;  // without what is open below
    std::size_t above;
    TalStringT<WideChar> name;
    std::unordered_map<TalStringT<WideChar>, std::size_t> below;  // the open ones
    bool changed;
    bool exists;  // false once it was removed or replaced
    bool hidden;  // by a blob of the same name
  };
  /// The directory of an edit, and the name in it.
  struct Target {
    std::size_t at;
    TalStringViewT<WideChar> name;
  };

  Target OpenFor(TalStringViewT<WideChar> path);
  std::size_t Open(std::size_t above, TalStringViewT<WideChar> view, bool make);
  std::size_t OpenAbove(const Components& path, bool make);
  bool Holds(std::size_t at, TalStringViewT<WideChar> name) const;
  void Hide(const Directory& above, TalStringViewT<WideChar> name);
  void Close(std::size_t above, TalStringViewT<WideChar> name);
  void ForgetLast() noexcept { m_lastAt = kNone; }

  IRepository& m_repository;
  std::deque<Directory> m_directories;  // the root is the first
  bool m_metHidden = false;
  // The directory of the last addition, or kNone, and its path in the edit, which outlives this.
  std::size_t m_lastAt = kNone;
  TalStringViewT<WideChar> m_lastAbove;
};

}  // namespace TalVcs::Kit
