#pragma once

#include <talvcs/objects/internal/tree_access.h>

#include <cstddef>
#include <optional>
#include <span>

namespace TalVcs {

/// Walks along a previous state of a directory while a later one is read from its entry list.
///
/// Only chunks whose records contain their entries whole are compared, so equal bytes mean equal
/// entries.
class PreviousEntries {
 public:
  PreviousEntries() = default;
  /// Starts at the first entry of the directory, which may be null and has to outlive the walk.
  explicit PreviousEntries(const TreeEntries* list) noexcept;
  explicit PreviousEntries(const Tree* tree) noexcept;

  /// Returns all entries of the previous state, null for none.
  const TreeEntries* List() const noexcept { return m_list; }
  bool AtEnd() const noexcept { return m_chunks.empty(); }
  /// Moves to the first entry after `name`; an empty name is before all.
  void SkipThrough(TalStringViewT<WideChar> name) noexcept;
  void SkipChunk() noexcept;
  void SkipEntry() noexcept;

  /// Returns the present chunk if the walk stands at its first entry and `list` begins with all of
  /// its records, otherwise null.
  EntryChunk* ChunkThatBegins(TalStringViewT<char> list) const noexcept;
  /// Returns the present entry if `list` begins with its record.
  std::optional<EntryChunk::Slot> EntryThatBegins(TalStringViewT<char> list) const noexcept;
  /// Returns the subtree under `name` in the previous state, or null.
  const Tree* Subtree(TalStringViewT<WideChar> name) const noexcept;

 private:
  const TreeEntries* m_list = nullptr;
  std::span<EntryChunk* const> m_chunks;
  std::size_t m_slot = 0;
};

}  // namespace TalVcs
