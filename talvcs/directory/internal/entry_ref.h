#pragma once

#include <talvcs/directory/internal/entry_chunk.h>
#include <talvcs/directory/internal/object_source.h>

#include <cstddef>
#include <span>

namespace TalVcs {

class TreeEntries;

/// One entry of a directory, or none: the handle on its object, the chunk that holds the handle,
/// the list that the chunk belongs to.
///
/// Valid as long as the list lives unchanged.
class EntryRef {
 public:
  /// No entry.
  EntryRef() = default;
  EntryRef(const TreeEntries* list, const EntryChunk* chunk, std::size_t index) noexcept
      : EntryRef(list, chunk, &chunk->Child(index)) {}
  /// `handle` is one of the chunk's, or null for no entry.
  EntryRef(const TreeEntries* list, const EntryChunk* chunk, const cow_ptr<Object>* handle) noexcept
      : m_handle(handle), m_chunk(chunk), m_list(list) {}

  /// True if there is an entry, with or without an object.
  explicit operator bool() const noexcept { return m_handle != nullptr; }
  /// True if the entry names an object, in memory or absent.
  bool HasObject() const noexcept {
    return m_handle != nullptr && (*m_handle || m_chunk->HasRecord(Index()));
  }
  bool IsAbsent() const noexcept {
    return m_handle != nullptr && !*m_handle && m_chunk->HasRecord(Index());
  }

  /// Returns the object if it is in memory, otherwise null.
  const Object* Present() const noexcept { return m_handle == nullptr ? nullptr : m_handle->get(); }
  /// Returns the handle on the object, which the directory keeps; an absent one is read first. A
  /// null handle if there is no entry or it has no object.
  const cow_ptr<Object>& Open() const {
    if (m_handle == nullptr) return kNone;
    if (!*m_handle && m_chunk->HasRecord(Index())) Read();
    return *m_handle;
  }

  /// Returns the id that an absent entry's record ends with.
  TalStringViewT<char> IdOfAbsent() const noexcept { return m_chunk->IdOfAbsent(Index()); }
  const TreeEntries* List() const noexcept { return m_list; }
  /// Returns the place of the directory that an entry of a source's directory names.
  ObjectSource::Place Place() const noexcept;
  EntryChunk::Slot Slot() const noexcept { return m_chunk->At(Index()); }

 private:
  static const cow_ptr<Object> kNone;

  std::size_t Index() const noexcept {
    return static_cast<std::size_t>(m_handle - &m_chunk->Child(0));
  }
  void Read() const;

  const cow_ptr<Object>* m_handle = nullptr;
  const EntryChunk* m_chunk = nullptr;
  const TreeEntries* m_list = nullptr;
};

/// Returns the id of the object that an entry names; the empty id if it names none.
Id IdOf(const EntryRef& entry);

/// Like `SameObject`, where one of the objects isn't in memory.
bool SameAbsentObject(EntryRef a, EntryRef b);

/// True if both entries name objects of one id, or neither names any. Reads nothing.
inline bool SameObject(const EntryRef& a, const EntryRef& b) {
  const Object* of_a = a.Present();
  const Object* of_b = b.Present();
  if (of_a == nullptr || of_b == nullptr) return SameAbsentObject(a, b);
  if (of_a == of_b) return true;
  const Id id_of_a = of_a->GetId();
  return id_of_a == of_b->GetId();
}

/// Announces the absent ones among these subtrees to their sources: the caller opens them next.
void ExpectTrees(std::span<const EntryRef> entries);

}  // namespace TalVcs
