#pragma once

#include <cstdint>
#include <optional>

namespace TalVcs::Kit {

/// Finds out whether objects were removed from a store while a store object relied on them.
///
/// A store counts its removals. The number at the first look or write of a save is kept until the
/// heads have moved; another number at that time means that the objects may be gone.
class RemovalWatch {
 public:
  /// True if the next look or write is the first one of a save.
  bool IsUnused() const noexcept { return m_stale || !m_removals; }

  /// A look or write while the store has counted `removals`. Nothing is kept of a save that has
  /// failed already, so that the next one begins here.
  void Rely(std::uint64_t removals) noexcept {
    if (m_stale || !m_removals) m_removals = removals;
    m_stale = false;
  }

  /// True if the save may write objects and move heads while the store counts `removals`. Otherwise
  /// what it relies on may be gone. Objects that name it must not be written, since a later save
  /// would take them for whole; the save has failed.
  bool MayGoOn(std::uint64_t removals) noexcept {
    m_stale = m_stale || (m_removals && *m_removals != removals);
    return !m_stale;
  }

  /// The heads have moved: the save is complete.
  void Moved() noexcept { m_removals.reset(); }

 private:
  std::optional<std::uint64_t> m_removals;
  bool m_stale = false;
};

}  // namespace TalVcs::Kit
