#pragma once

#include <talvcs/directory/internal/entry_chunk.h>
#include <talvcs/directory/internal/object_source.h>

#include <cstddef>
#include <span>

namespace TalVcs {

class TreeEntries;

/// One entry of a directory, or none: the list that it belongs to, its chunk, its place there.
///
/// Valid as long as the list lives unchanged.
class EntryRef {
 public:
  /// No entry.
  EntryRef() = default;
  EntryRef(const TreeEntries* list, const EntryChunk* chunk, std::size_t index) noexcept
      : m_list(list), m_chunk(chunk), m_index(index) {}

  /// True if there is an entry, with or without an object.
  explicit operator bool() const noexcept { return m_chunk != nullptr; }
  /// True if the entry names an object, in memory or absent.
  bool HasObject() const noexcept { return m_chunk != nullptr && m_chunk->HasObject(m_index); }
  bool IsAbsent() const noexcept { return m_chunk != nullptr && m_chunk->IsAbsent(m_index); }

  /// Returns the object if it is in memory, otherwise null.
  const Object* Present() const noexcept {
    return m_chunk == nullptr ? nullptr : m_chunk->Child(m_index).get();
  }
  /// Returns the handle on the object, which the directory keeps; an absent one is read first. A
  /// null handle if there is no entry or it has no object.
  const cow_ptr<Object>& Open() const {
    if (m_chunk == nullptr) return kNone;
    if (m_chunk->IsAbsent(m_index)) Read();
    return m_chunk->Child(m_index);
  }

  /// Returns the id that an absent entry's record ends with.
  TalStringViewT<char> IdOfAbsent() const noexcept { return m_chunk->IdOfAbsent(m_index); }
  const TreeEntries* List() const noexcept { return m_list; }
  /// Returns the place of the directory that an entry of a source's directory names.
  ObjectSource::Place Place() const noexcept;
  EntryChunk::Slot Slot() const noexcept { return m_chunk->At(m_index); }

 private:
  static const cow_ptr<Object> kNone;

  void Read() const;

  const TreeEntries* m_list = nullptr;
  const EntryChunk* m_chunk = nullptr;
  std::size_t m_index = 0;
};

/// Returns the id of the object that an entry names; the empty id if it names none.
Id IdOf(const EntryRef& entry);

/// True if both entries name objects of one id, or neither names any. Reads nothing.
bool SameObject(const EntryRef& a, const EntryRef& b);

/// Says to the sources of the absent ones among these subtrees that they are opened next.
void ExpectTrees(std::span<const EntryRef> entries);

}  // namespace TalVcs
