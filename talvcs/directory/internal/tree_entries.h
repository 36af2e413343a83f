#pragma once

#include <talvcs/directory/internal/entry_ref.h>
#include <talvcs/directory/internal/object_source.h>
#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/internal/counted_block.h>
#include <talvcs/foundation/internal/sha256.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs {

/// The entries of one directory: a list of chunks, which copies of a tree share.
///
/// A null pointer is a directory without entries. The functions that change a list take the
/// caller's pointer. If the list is shared, they replace it by a copy that the caller alone holds.
/// If they throw, nothing has changed.
class TreeEntries : public TalUtils::CountedBlock {
 public:
  using Ptr = TalUtils::CountedPtr<TreeEntries>;

  /// Frees a list that has no hold left, and all lists below it that end with it, without
  /// recursion.
  static void Free(TreeEntries* list) noexcept;

  static void Set(Ptr& list, TalStringViewT<WideChar> name, EntryKind kind,
                  const cow_ptr<Object>& child);
  /// Puts an entry of another directory into this one, under its name. An absent entry stays absent
  /// if this directory has the same source or none, otherwise it is read.
  static void SetLike(Ptr& list, const EntryRef& entry);
  /// Removes the entries of both kinds under `name`. Returns false if there is none.
  static bool Erase(Ptr& list, TalStringViewT<WideChar> name);

  /// Returns the entry under (`name`, `kind`), if there is one. Reads nothing.
  static EntryRef Find(const TreeEntries* list, TalStringViewT<WideChar> name,
                       EntryKind kind) noexcept;

  /// Gives the list, which has one holder, the source of its absent entries.
  void SetSource(ObjectSource& source, ObjectSource::Place place) noexcept;
  /// Returns where absent entries are read from, which the list keeps; null if it never had any.
  ObjectSource* Source() const noexcept { return m_source; }
  ObjectSource::Place GetPlace() const noexcept { return m_place; }
  /// Announces all absent subtrees to the source, for a walk that is going to open each of them and
  /// all below it.
  void ExpectSubtrees() const {
    if (m_source != nullptr && m_treeCount != 0) ExpectAbsentSubtrees();
  }

  std::uint64_t TreeCount() const noexcept { return m_treeCount; }
  std::uint64_t Count() const noexcept { return m_count; }
  std::uint64_t RecordBytes() const noexcept { return m_recordBytes; }
  /// True if any blob of the directory hides a subtree of the same name.
  bool HidesTree() const noexcept { return m_hidingChunks != 0; }
  std::span<EntryChunk* const> Chunks() const noexcept { return {ChunkArray(), m_chunkCount}; }
  /// Calls `visit(chunk, index)` for each chunk from `first` on, in order, for a walk that reads
  /// the records of all. They are prefetched a few chunks ahead.
  template <class Visit>
  void VisitChunks(std::size_t first, Visit visit) const {
    const auto chunks = Chunks();
    for (std::size_t index = first; index < chunks.size(); ++index) {
      EntryChunk::PrefetchAhead(chunks, index);
      visit(*chunks[index], index);
    }
  }
  /// Returns the header of the packed form of a tree with these entries, null for none. The records
  /// of all chunks follow it.
  static PackedHeader HeaderOf(const TreeEntries* list) noexcept {
    return {kTreeType, list == nullptr ? 0 : list->m_recordBytes};
  }
  /// Returns the chunk that has the entries under `name`, if there are any.
  const EntryChunk& ChunkFor(TalStringViewT<WideChar> name) const noexcept {
    return *Chunks()[FindChunk(name)];
  }

  /// Returns the digest of the packed form of a tree with these entries, null for none.
  ///
  /// A list that came from another by replacing an entry doesn't hash again what stands before it:
  /// it goes on from a checkpoint, and leaves checkpoints itself if one tree alone holds it.
  static TalUtils::Sha256::Digest ComputeDigest(TreeEntries* list);

 private:
  friend class TreeEntriesBuilder;
  friend TreeEntries* TalUtils::NewCountedBlock<TreeEntries>(std::size_t bytes);

  /// The state of the hash before a chunk: the checkpoints part the chunks into equal shares.
  struct Checkpoint {
    TalUtils::Sha256::State state;  // after the last whole block before the chunk
    std::uint32_t blocks;           // up to there
    std::uint32_t tail;             // bytes between that block and the chunk
  };
  static constexpr std::size_t kCheckpoints = 3;
  static constexpr std::size_t kFewestChunksForCheckpoints = 8;

  TreeEntries() = default;
  static Ptr New(std::size_t capacity, bool checkpoints);
  void TakeCheckpoints(const TreeEntries& previous, std::size_t equalChunks) noexcept;
  void LeaveCheckpoint(const TalUtils::Sha256& hash, std::size_t size, std::size_t chunk) noexcept;
  Checkpoint* Checkpoints() const noexcept;
  std::size_t ChunkOfCheckpoint(std::size_t index) const noexcept {
    return (index + 1) * m_chunkCount / (kCheckpoints + 1);
  }
  static void Replace(Ptr& list, std::size_t first, std::size_t removed,
                      std::span<EntryChunk::Ptr> chunks);
  std::size_t FindChunk(TalStringViewT<WideChar> name) const noexcept;
  // The chunks come after the list itself.
  EntryChunk** ChunkArray() const noexcept {
    return TalUtils::FirstAfter<EntryChunk*>(const_cast<TreeEntries*>(this));
  }
  void CountChunk(const EntryChunk& chunk, bool added) noexcept;
  static void SetSlot(Ptr& list, const EntryChunk::Slot& slot);
  bool AppendInPlace(const EntryChunk::Slot& slot);
  void ExpectAbsentSubtrees() const;

  bool m_hasRoomForCheckpoints = false;
  std::uint8_t m_checkpointCount = 0;
  std::uint32_t m_hidingChunks = 0;
  std::uint32_t m_chunkCount = 0;
  std::uint32_t m_capacity = 0;
  ObjectSource::Place m_place = 0;
  std::uint64_t m_count = 0;
  std::uint64_t m_treeCount = 0;
  std::uint64_t m_recordBytes = 0;
  union {
    ObjectSource* m_source = nullptr;  // held
    TreeEntries* m_next;               // links lists that wait to be freed
  };
};

/// Collects entries in ascending order and makes a list of them in one go.
class TreeEntriesBuilder {
 public:
  TreeEntriesBuilder() = default;
  TreeEntriesBuilder(const TreeEntriesBuilder&) = delete;
  TreeEntriesBuilder& operator=(const TreeEntriesBuilder&) = delete;

  /// Appends an entry, which must come after all present ones.
  void Append(TalStringViewT<WideChar> name, EntryKind kind, const cow_ptr<Object>& child) {
    Append({name, kind, &child, {}});
  }
  /// Appends an entry likewise. Its record, if it is known, must live until `Finish`.
  void Append(const EntryChunk::Slot& slot);
  /// Appends a whole chunk, shared.
  void Append(EntryChunk& chunk);
  /// Returns the list, null for no entries. The builder is empty afterwards. The list takes over
  /// the checkpoints of `previous`, which may be null, as far as both begin with the same chunks.
  TreeEntries::Ptr Finish(const TreeEntries* previous);

 private:
  struct Pending {
    TalStringT<WideChar> name;
    EntryKind kind;
    cow_ptr<Object> child;
    TalStringViewT<char> record;
  };
  void Flush(std::size_t count);

  std::vector<Pending> m_pending;
  std::vector<EntryChunk::Ptr> m_chunks;
};

}  // namespace TalVcs
