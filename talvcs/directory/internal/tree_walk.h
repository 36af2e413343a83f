#pragma once

#include <talvcs/foundation/internal/prefetch.h>
#include <talvcs/objects/internal/tree_access.h>

#include <algorithm>
#include <cstddef>

namespace TalVcs {

/// The entries under one name in one directory. A blob and a subtree of one name are neighbours in
/// one chunk, the blob first.
class NamedEntries {
 public:
  /// The entries under a name that the directory lacks.
  NamedEntries() = default;
  /// The handles of both kinds, null for none.
  NamedEntries(const TreeEntries* list, const EntryChunk* chunk, const cow_ptr<Object>* blob,
               const cow_ptr<Object>* tree) noexcept
      : m_list(list), m_chunk(chunk), m_blob(blob), m_tree(tree) {}

  EntryRef Blob() const noexcept { return {m_list, m_chunk, m_blob}; }
  EntryRef Tree() const noexcept { return {m_list, m_chunk, m_tree}; }
  /// Returns the visible entry: a blob hides a subtree.
  EntryRef Local() const noexcept { return Blob().HasObject() ? Blob() : Tree(); }
  EntryRef OfKind(EntryKind kind) const noexcept {
    return kind == EntryKind::Blob ? Blob() : Tree();
  }

 private:
  const TreeEntries* m_list = nullptr;
  const EntryChunk* m_chunk = nullptr;
  const cow_ptr<Object>* m_blob = nullptr;
  const cow_ptr<Object>* m_tree = nullptr;
};

/// Returns the subtree, which is read if it is absent; null if there is none.
inline const Tree* OpenTree(const EntryRef& entry) {
  return static_cast<const Tree*>(entry.Open().get());
}

/// Returns the entries under `name` in a directory.
inline NamedEntries EntriesUnder(const TreeEntries* list, TalStringViewT<WideChar> name) noexcept {
  if (list == nullptr) return {};
  const EntryChunk& chunk = list->ChunkFor(name);
  const cow_ptr<Object>* blob = nullptr;
  const cow_ptr<Object>* tree = nullptr;
  for (std::size_t index = chunk.LowerBound(name, EntryKind::Blob);
       index < chunk.Count() && SameName(chunk.Name(index), name); ++index) {
    (chunk.Kind(index) == EntryKind::Blob ? blob : tree) = &chunk.Child(index);
  }
  return {list, &chunk, blob, tree};
}

/// Walks over the names of a directory in ascending order.
class EntryCursor {
 public:
  explicit EntryCursor(const TreeEntries* list) noexcept : m_list(list) {}

  bool AtEnd() const noexcept { return m_list == nullptr || m_chunk == m_list->Chunks().size(); }
  const EntryChunk& Chunk() const noexcept { return *m_list->Chunks()[m_chunk]; }
  TalStringViewT<WideChar> Name() const noexcept { return Chunk().Name(m_slot); }

  /// Returns the entries under the present name and moves to the next one.
  NamedEntries Take() noexcept {
    const EntryChunk& chunk = Chunk();
    const std::size_t first = m_slot++;
    const cow_ptr<Object>* blob = nullptr;
    const cow_ptr<Object>* tree = nullptr;
    if (chunk.Kind(first) == EntryKind::Tree) {
      tree = &chunk.Child(first);
    } else {
      blob = &chunk.Child(first);
      const bool may_hide = m_slot < chunk.Count() && chunk.Kind(m_slot) == EntryKind::Tree;
      if (may_hide && SameName(chunk.Name(m_slot), chunk.Name(first))) {
        tree = &chunk.Child(m_slot++);
      }
    }
    if (m_slot == chunk.Count()) {
      ++m_chunk;
      m_slot = 0;
    }
    return {m_list, &chunk, blob, tree};
  }

  /// Skips the chunks that both directories share, if both cursors are at the start of a chunk.
  /// Skips nothing if a blob hides a subtree, because that subtree differs from the blob, which is
  /// the visible entry of its name.
  static void SkipShared(EntryCursor& a, EntryCursor& b) noexcept {
    if (a.m_slot != 0 || b.m_slot != 0 || a.m_list->HidesTree()) return;
    const auto of_a = a.m_list->Chunks().subspan(a.m_chunk);
    const auto of_b = b.m_list->Chunks().subspan(b.m_chunk);
    const std::size_t most = std::min(of_a.size(), of_b.size());
    std::size_t shared = 0;
    while (shared < most && of_a[shared] == of_b[shared]) ++shared;
    a.m_chunk += shared;
    b.m_chunk += shared;
  }

 private:
  const TreeEntries* m_list;
  std::size_t m_chunk = 0;
  std::size_t m_slot = 0;
};

/// Prefetches the chunks that both directories have at the same place and do not share.
inline void PrefetchUnshared(const TreeEntries* a, const TreeEntries* b) noexcept {
  constexpr std::size_t kHeadBytes = 192;  // handles and names of a small chunk
  if (a == nullptr || b == nullptr) return;
  const auto of_a = a->Chunks();
  const auto of_b = b->Chunks();
  const std::size_t most = std::min(of_a.size(), of_b.size());
  for (std::size_t index = 0; index < most; ++index) {
    if (of_a[index] == of_b[index]) continue;
    TalUtils::PrefetchRange(of_a[index], kHeadBytes);
    TalUtils::PrefetchRange(of_b[index], kHeadBytes);
  }
}

/// Calls `visit(name, entries of a, entries of b)` for each name in either directory, in ascending
/// order. May skip chunks that both share.
template <class Visit>
void VisitUnsharedNames(const TreeEntries* a, const TreeEntries* b, Visit visit) {
  PrefetchUnshared(a, b);
  EntryCursor left(a);
  EntryCursor right(b);
  for (;;) {
    if (!left.AtEnd() && !right.AtEnd()) EntryCursor::SkipShared(left, right);
    if (left.AtEnd() && right.AtEnd()) return;
    if (right.AtEnd()) {
      const auto name = left.Name();
      visit(name, left.Take(), NamedEntries());
      continue;
    }
    if (left.AtEnd()) {
      const auto name = right.Name();
      visit(name, NamedEntries(), right.Take());
      continue;
    }
    const auto left_name = left.Name();
    const auto right_name = right.Name();
    const int order = CompareNames(left_name, right_name);
    const auto name = order <= 0 ? left_name : right_name;
    const NamedEntries of_left = order <= 0 ? left.Take() : NamedEntries();
    const NamedEntries of_right = order >= 0 ? right.Take() : NamedEntries();
    visit(name, of_left, of_right);
  }
}

/// True if the entries of that kind differ: one side has an object that is not the visible entry of
/// the name on the other side.
inline bool EntriesDiffer(EntryKind kind, const NamedEntries& a, const NamedEntries& b) {
  const EntryRef own_a = a.OfKind(kind);
  const EntryRef own_b = b.OfKind(kind);
  return (own_a.HasObject() && !SameObject(own_a, b.Local())) ||
         (own_b.HasObject() && !SameObject(own_b, a.Local()));
}

}  // namespace TalVcs
