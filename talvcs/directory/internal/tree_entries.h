#pragma once

#include <talvcs/directory/internal/entry_ref.h>
#include <talvcs/directory/internal/object_source.h>
#include <talvcs/foundation/internal/ref_count.h>
#include <talvcs/foundation/internal/sha256.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs {

/// The entries of one directory: a list of chunks, shared by count between copies of a tree.
///
/// The free handling of the count is the business of `Tree`, whose only member of this kind is a
/// plain pointer; null stands for no entries. The functions that change a list take the pointer by
/// reference, replace it by a list of the caller's own where it is shared, and change nothing if
/// they throw.
class TreeEntries {
 public:
  static TreeEntries* Share(TreeEntries* list) noexcept;
  /// Gives up a hold. What dies with it is freed without recursion, however deep it nests.
  static void Release(TreeEntries* list) noexcept;

  static void Set(TreeEntries*& list, TalStringViewT<WideChar> name, EntryKind kind,
                  const cow_ptr<Object>& child);
  /// Puts an entry of another directory into this one, under its name. An absent entry stays absent
  /// if this directory has the same source or none, otherwise it is read.
  static void SetLike(TreeEntries*& list, const EntryRef& entry);
  /// Removes the entries of both kinds under `name`. Returns false if there is none.
  static bool Erase(TreeEntries*& list, TalStringViewT<WideChar> name);

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

  /// True if one tree alone holds the list.
  bool IsSole() const noexcept { return m_holders.IsSole(); }
  std::uint64_t TreeCount() const noexcept { return m_treeCount; }
  std::uint64_t Count() const noexcept { return m_count; }
  std::uint64_t RecordBytes() const noexcept { return m_recordBytes; }
  /// True if any blob of the directory hides a subtree of the same name.
  bool HidesTree() const noexcept { return m_hidingChunks != 0; }
  std::span<EntryChunk* const> Chunks() const noexcept { return {ChunkArray(), m_chunkCount}; }
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

  /// The state of the hash before a chunk: the checkpoints part the chunks into equal shares.
  struct Checkpoint {
    TalUtils::Sha256::State state;  // after the last whole block before the chunk
    std::uint32_t blocks;           // up to there
    std::uint32_t tail;             // bytes between that block and the chunk
  };
  static constexpr std::size_t kCheckpoints = 3;
  static constexpr std::size_t kFewestChunksForCheckpoints = 8;

  TreeEntries() = default;
  static TreeEntries* New(std::size_t capacity, bool checkpoints);
  void TakeCheckpoints(const TreeEntries& previous, std::size_t equalChunks) noexcept;
  void LeaveCheckpoint(const TalUtils::Sha256& hash, std::size_t size, std::size_t chunk) noexcept;
  Checkpoint* Checkpoints() const noexcept;
  std::size_t ChunkOfCheckpoint(std::size_t index) const noexcept {
    return (index + 1) * m_chunkCount / (kCheckpoints + 1);
  }
  static void Replace(TreeEntries*& list, std::size_t first, std::size_t removed,
                      std::span<EntryChunk* const> chunks);
  static void FreeAlone(TreeEntries* list) noexcept;
  std::size_t FindChunk(TalStringViewT<WideChar> name) const noexcept;
  // The chunks come after the list itself.
  EntryChunk** ChunkArray() const noexcept {
    return static_cast<EntryChunk**>(static_cast<void*>(const_cast<TreeEntries*>(this) + 1));
  }
  void CountChunk(const EntryChunk& chunk, bool added) noexcept;
  static void SetSlot(TreeEntries*& list, const EntryChunk::Slot& slot);
  void ExpectAbsentSubtrees() const;

  TalUtils::RefCount m_holders;
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
    TreeEntries* m_next;               // links lists that wait for their end
  };
};

/// Collects entries in ascending order and makes a list of them in one go.
class TreeEntriesBuilder {
 public:
  TreeEntriesBuilder() = default;
  TreeEntriesBuilder(const TreeEntriesBuilder&) = delete;
  TreeEntriesBuilder& operator=(const TreeEntriesBuilder&) = delete;
  ~TreeEntriesBuilder();

  /// Appends an entry, which has to stand behind all that are there.
  void Append(TalStringViewT<WideChar> name, EntryKind kind, const cow_ptr<Object>& child) {
    Append({name, kind, &child, {}});
  }
  /// Appends an entry likewise. Its record, if it is known, has to live until `Finish`.
  void Append(const EntryChunk::Slot& slot);
  /// Appends a whole chunk, shared.
  void Append(EntryChunk& chunk);
  /// Returns the list, held once, or null for no entries. The builder is empty afterwards. What of
  /// the digest of `previous`, which may be null, holds for the list too is taken from there.
  TreeEntries* Finish(const TreeEntries* previous);

 private:
  struct Pending {
    TalStringT<WideChar> name;
    EntryKind kind;
    cow_ptr<Object> child;
    TalStringViewT<char> record;
  };
  void Flush(std::size_t count);

  std::vector<Pending> m_pending;
  std::vector<EntryChunk*> m_chunks;
};

}  // namespace TalVcs
