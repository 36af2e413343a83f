#pragma once

#include <talvcs/foundation/internal/prefetch.h>
#include <talvcs/objects/internal/tree_access.h>

#include <algorithm>
#include <cstddef>

namespace TalVcs {

/// What stands under one name in one directory. A null pointer means no entry; an entry's handle
/// may be null as well.
struct NamedEntries {
  const cow_ptr<Object>* blob = nullptr;
  const cow_ptr<Object>* tree = nullptr;

  const Object* BlobObject() const noexcept { return blob == nullptr ? nullptr : blob->get(); }
  const Tree* TreeObject() const noexcept {
    return tree == nullptr ? nullptr : static_cast<const Tree*>(tree->get());
  }
  /// The object that the name stands for: a blob hides a subtree.
  const Object* LocalObject() const noexcept {
    const Object* found = BlobObject();
    return found != nullptr ? found : TreeObject();
  }
  const Object* OfKind(EntryKind kind) const noexcept {
    return kind == EntryKind::kBlob ? BlobObject() : TreeObject();
  }
};

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
    const TalStringViewT<WideChar> name = chunk.Name(m_slot);
    NamedEntries entries;
    do {
      (chunk.Kind(m_slot) == EntryKind::kBlob ? entries.blob : entries.tree) = &chunk.Child(m_slot);
      ++m_slot;
    } while (m_slot < chunk.Count() && SameName(chunk.Name(m_slot), name));
    if (m_slot == chunk.Count()) {
      ++m_chunk;
      m_slot = 0;
    }
    return entries;
  }

  /// Moves over the chunks that both directories have next, where both stand at a chunk. Their
  /// entries are the same objects. Where a blob hides a subtree nothing is passed over, since that
  /// subtree differs from what its name stands for.
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

/// Has the chunks fetched that stand at equal places but aren't shared: the next ones to be read.
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

/// Calls `visit(name, entries of a, entries of b)` for each name that stands in either directory,
/// in ascending order. Chunks that both share may be passed over.
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

inline bool SameObject(const Object* a, const Object* b) {
  if (a == b) return true;
  if (a == nullptr || b == nullptr) return false;
  const Id id_of_a = a->GetId();
  return id_of_a == b->GetId();
}

/// True if the entries of that kind differ: one side has an object for which the name doesn't stand
/// on the other side.
inline bool EntriesDiffer(EntryKind kind, const NamedEntries& a, const NamedEntries& b) {
  const Object* own_a = a.OfKind(kind);
  const Object* own_b = b.OfKind(kind);
  return (own_a != nullptr && !SameObject(own_a, b.LocalObject())) ||
         (own_b != nullptr && !SameObject(own_b, a.LocalObject()));
}

}  // namespace TalVcs
