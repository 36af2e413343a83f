#pragma once

#include <talvcs/format/internal/tree_format.h>
#include <talvcs/foundation/internal/counted_block.h>
#include <talvcs/foundation/internal/text_compare.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/object.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace TalVcs {

/// Compares like `TalStringViewT::Compare`, without a call out of line.
inline int CompareNames(TalStringViewT<WideChar> a, TalStringViewT<WideChar> b) noexcept {
  return TalPlatform::CompareUnits(a.text, static_cast<std::size_t>(a.length), b.text,
                                   static_cast<std::size_t>(b.length));
}

inline bool SameName(TalStringViewT<WideChar> a, TalStringViewT<WideChar> b) noexcept {
  return a.length == b.length && CompareNames(a, b) == 0;
}

/// A run of entries of one directory, with the bytes of their records. It is immutable as soon as
/// it has a second holder; before, entries can be appended.
///
/// All of it is one piece of memory: the chunk, the handles, the ends of names and records, the
/// names, the records. Entries ascend by name; a blob comes before a subtree of the same name, and
/// both are always in one chunk. All states of a directory share chunks.
class EntryChunk : public TalUtils::CountedBlock {
 public:
  using Ptr = TalUtils::CountedPtr<EntryChunk>;

  /// The most entries that any chunk has.
  static constexpr std::size_t kMostSlots = 16;

  /// What an entry is made of. The views and handles of a plan belong to the caller.
  ///
  /// An entry with a null handle and a record is *absent*: its object is in a store and is read
  /// when the link is followed. One with neither has no object at all.
  struct Slot {
    TalStringViewT<WideChar> name;
    EntryKind kind;
    const cow_ptr<Object>* child;  // the handle may be null
    TalStringViewT<char> record;   // the bytes if they are known; empty if not

    bool HasObject() const noexcept { return *child || record.length != 0; }
  };

  /// Returns a chunk with the slots, of which there must be one to `kMostSlots + 1`. A slot that a
  /// blob of its name hides must not be absent, because it gets no record. The chunk has room for
  /// `room` more entries of average size.
  static Ptr Make(std::span<const Slot> slots, std::size_t room = 0);
  /// Appends an entry with an object, which must come after all present ones and under another
  /// name. Returns false, with nothing changed, if there is no room for it or the object has
  /// another mode or type than the library's own. The chunk must have one holder. Buffers that
  /// share its records do not see the new one.
  bool TryAppend(const Slot& slot);
  /// Frees a chunk that has no hold left. Buffers that share its records keep these.
  static void Free(EntryChunk* chunk) noexcept;

  std::size_t Count() const noexcept { return m_count; }
  std::size_t TreeCount() const noexcept { return m_treeCount; }
  /// True if a blob of the chunk hides a subtree of the same name.
  bool HidesTree() const noexcept { return m_hidesTree; }
  /// True if each entry has a record of the library's own form with its whole name, so that equal
  /// records are equal entries.
  bool HasWholeRecords() const noexcept { return m_hasWholeRecords; }

  /// The bytes of the records, one run. A buffer that shares them keeps the memory alive, but not
  /// the handles on the children.
  std::span<const std::byte> Records() const noexcept {
    const auto* start = static_cast<const std::byte*>(static_cast<const void*>(this));
    return {start + m_recordsOffset, m_recordBytes};
  }
  void AppendRecordsTo(Buffer& target) const;
  /// Prefetches the records of the chunk a few places after `index`. Chunks lie anywhere in memory;
  /// waiting for each in turn took a third of the time of a save.
  static void PrefetchAhead(std::span<EntryChunk* const> chunks, std::size_t index) noexcept;

  TalStringViewT<WideChar> Name(std::size_t index) const noexcept {
    const Ends* ends = EndsOfEntries();
    const std::uint32_t start = index == 0 ? 0 : ends[index - 1].name;
    return {Names() + start, static_cast<int>(ends[index].name - start)};
  }
  EntryKind Kind(std::size_t index) const noexcept {
    return (m_treeBits >> index & 1) != 0 ? EntryKind::Tree : EntryKind::Blob;
  }
  const cow_ptr<Object>& Child(std::size_t index) const noexcept { return Children()[index]; }
  /// True if the entry is part of the entry list: it has an object and isn't hidden by a blob.
  bool HasRecord(std::size_t index) const noexcept { return RecordSize(index) != 0; }
  bool IsAbsent(std::size_t index) const noexcept { return !Child(index) && HasRecord(index); }
  /// Returns the id that an absent entry's record ends with.
  TalStringViewT<char> IdOfAbsent(std::size_t index) const noexcept;
  /// Gives an absent entry its object, or takes it away again. Every directory that shares the
  /// chunk sees the same link.
  void SetChild(std::size_t index, cow_ptr<Object> child) const noexcept {
    Children()[index] = std::move(child);
  }
  /// True if every directory that shares the chunk has a source, so that links can be made absent.
  bool HasSource() const noexcept { return m_hasSource; }
  void SetHasSource() noexcept { m_hasSource = true; }
  Slot At(std::size_t index) const noexcept;

  /// Returns the first index whose entry is not before (`name`, `kind`).
  std::size_t LowerBound(TalStringViewT<WideChar> name, EntryKind kind) const noexcept;

 private:
  struct Ends {
    std::uint32_t name;    // code units up to the end of this entry's name
    std::uint32_t record;  // bytes up to the end of this entry's record
  };

  EntryChunk() = default;
  ~EntryChunk() = default;
  void PutEntry(const Slot& slot, std::uint32_t recordEnd) noexcept;
  static constexpr std::size_t NamesOffset(std::size_t capacity) noexcept {
    return sizeof(EntryChunk) + capacity * (sizeof(cow_ptr<Object>) + sizeof(Ends));
  }
  // After the chunk itself come the handles, the ends, the names and the records. Each of the four
  // may have room after it.
  cow_ptr<Object>* Children() const noexcept {
    return TalUtils::FirstAfter<cow_ptr<Object>>(const_cast<EntryChunk*>(this));
  }
  Ends* EndsOfEntries() const noexcept {
    return static_cast<Ends*>(static_cast<void*>(Children() + m_capacity));
  }
  WideChar* Names() const noexcept {
    return static_cast<WideChar*>(static_cast<void*>(EndsOfEntries() + m_capacity));
  }
  std::uint32_t RecordSize(std::size_t index) const noexcept {
    const Ends* ends = EndsOfEntries();
    return index == 0 ? ends[0].record : ends[index].record - ends[index - 1].record;
  }

  std::uint16_t m_count = 0;
  std::uint16_t m_treeCount = 0;
  std::uint32_t m_treeBits = 0;
  std::uint8_t m_capacity = 0;  // entries
  bool m_hidesTree = false;
  bool m_hasWholeRecords = false;
  bool m_hasSource = false;
  // The block that the chunk itself lies in. The records come last in it.
  Buffer m_memory;
  std::uint32_t m_recordsOffset = 0;
  std::uint32_t m_recordBytes = 0;
};

}  // namespace TalVcs
