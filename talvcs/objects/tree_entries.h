#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/foundation/ref_count.h>
#include <talvcs/objects/object.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs {

enum class EntryKind { kBlob, kTree };

/// An immutable run of entries of one directory, with the bytes of their records.
///
/// All of it is one piece of memory: the chunk, the handles, the ends of names and records, the names,
/// the records. Entries ascend by name; a blob stands in front of a subtree of the same name, and both always
/// stand in one chunk. Chunks are shared by count between all states of a directory.
class EntryChunk {
 public:
  /// What an entry is made of. The views and handles of a plan belong to somebody else.
  struct Slot {
    TalStringViewT<WideChar> name;
    EntryKind kind;
    const cow_ptr<Object>* child;  // the handle may be null
    TalStringViewT<char> record;   // the bytes if they are known; empty if not
  };

  /// Returns a chunk with the slots, held once. `slots` is not empty.
  static EntryChunk* Make(std::span<const Slot> slots);

  void Acquire() noexcept { m_holders.Acquire(); }
  [[nodiscard]] bool ReleaseHold() noexcept { return m_holders.Release(); }
  bool IsSole() const noexcept { return m_holders.IsSole(); }
  /// Frees a chunk whose last hold was released.
  static void Free(EntryChunk* chunk) noexcept;

  std::size_t Count() const noexcept { return m_count; }
  std::size_t TreeCount() const noexcept { return m_treeCount; }
  /// True if a blob of the chunk hides a subtree of the same name.
  bool HidesTree() const noexcept { return m_hidesTree; }
  /// True if each entry has a record that tells its whole name, so that a directory whose list holds
  /// these bytes has these entries.
  bool IsFaithful() const noexcept { return m_faithful; }

  /// The bytes of the records, one run. A buffer that shares them keeps the memory alive, but not the
  /// handles on the children.
  std::span<const std::byte> Records() const noexcept;
  void AppendRecordsTo(Buffer& target) const;


  TalStringViewT<WideChar> Name(std::size_t index) const noexcept;
  EntryKind Kind(std::size_t index) const noexcept;
  const cow_ptr<Object>& Child(std::size_t index) const noexcept { return Children()[index]; }
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
  cow_ptr<Object>* Children() const noexcept;
  Ends* EndsOfEntries() const noexcept;
  WideChar* Names() const noexcept;

  TalUtils::RefCount m_holders;
  std::uint16_t m_count = 0;
  std::uint16_t m_treeCount = 0;
  std::uint32_t m_treeBits = 0;
  bool m_hidesTree = false;
  bool m_faithful = false;
  // The block that the chunk itself lies in. The records are the last bytes of it.
  Buffer m_memory;
  std::uint32_t m_recordsOffset = 0;
};

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
  /// Removes the entries of both kinds under `name`. Returns false if there is none.
  static bool Erase(TreeEntries*& list, TalStringViewT<WideChar> name);

  /// Returns the handle under (`name`, `kind`), or null if there is no such entry.
  static const cow_ptr<Object>* Find(const TreeEntries* list, TalStringViewT<WideChar> name,
                                     EntryKind kind) noexcept;

  /// True if one tree alone holds the list.
  bool IsSole() const noexcept { return m_holders.IsSole(); }
  std::uint64_t TreeCount() const noexcept { return m_treeCount; }
  std::uint64_t Count() const noexcept { return m_count; }
  std::uint64_t RecordBytes() const noexcept { return m_recordBytes; }
  std::span<EntryChunk* const> Chunks() const noexcept { return {ChunkArray(), m_chunkCount}; }

 private:
  friend class TreeEntriesBuilder;
  TreeEntries() = default;
  static TreeEntries* New(std::size_t capacity);
  static void Replace(TreeEntries*& list, std::size_t first, std::size_t removed,
                      std::span<EntryChunk* const> chunks);
  static void ReleaseChunk(EntryChunk* chunk, TreeEntries*& chain) noexcept;
  static void FreeChain(TreeEntries* list) noexcept;
  static void FreeAlone(TreeEntries* list) noexcept;
  std::size_t FindChunk(TalStringViewT<WideChar> name) const noexcept;
  EntryChunk** ChunkArray() const noexcept;
  void CountChunk(const EntryChunk& chunk, bool added) noexcept;

  TalUtils::RefCount m_holders;
  std::size_t m_chunkCount = 0;
  std::size_t m_capacity = 0;
  std::uint64_t m_count = 0;
  std::uint64_t m_treeCount = 0;
  std::uint64_t m_recordBytes = 0;
  TreeEntries* m_next = nullptr;  // links dying lists
};

/// Collects entries in ascending order and makes a list of them in one go.
class TreeEntriesBuilder {
 public:
  TreeEntriesBuilder() = default;
  TreeEntriesBuilder(const TreeEntriesBuilder&) = delete;
  TreeEntriesBuilder& operator=(const TreeEntriesBuilder&) = delete;
  ~TreeEntriesBuilder();

  /// Appends an entry, which has to stand behind all that are there.
  void Append(TalStringViewT<WideChar> name, EntryKind kind, const cow_ptr<Object>& child);
  /// Appends a whole chunk, shared.
  void Append(EntryChunk& chunk);
  /// Returns the list, held once, or null for no entries. The builder is empty afterwards.
  TreeEntries* Finish();

 private:
  struct Pending {
    TalStringT<WideChar> name;
    EntryKind kind;
    cow_ptr<Object> child;
  };
  void Flush(std::size_t count);

  std::vector<Pending> m_pending;
  std::vector<EntryChunk*> m_chunks;
};

}  // namespace TalVcs
