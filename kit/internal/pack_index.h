#pragma once

#include <kit/internal/file_system.h>
#include <kit/internal/store_state.h>

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// A place in the packs of a store: the number of the pack, and a position in it.
struct PackPlace {
  std::uint32_t pack = 0;
  std::uint64_t offset = 0;

  friend auto operator<=>(const PackPlace&, const PackPlace&) = default;
};

/// The bits of a place that hold the position in the pack.
inline constexpr int kOffsetBits = 40;

inline std::uint64_t NumberFromPlace(const PackPlace& place) noexcept {
  return std::uint64_t{place.pack} << kOffsetBits | place.offset;
}
inline PackPlace PlaceFromNumber(std::uint64_t number) noexcept {
  return {static_cast<std::uint32_t>(number >> kOffsetBits),
          number & ((std::uint64_t{1} << kOffsetBits) - 1)};
}

/// Where the record of an object is. Of the object only the first bytes are known, so the record
/// says whether it is the right one.
struct PackIndexEntry {
  std::uint64_t prefix = 0;  // the first 8 bytes of the id, the highest first
  std::uint64_t place = 0;   // a `PackPlace` as a number

  friend auto operator<=>(const PackIndexEntry&, const PackIndexEntry&) = default;
};

std::uint64_t PrefixOf(const ObjectKey& key) noexcept;

/// Which records an index has: all that begin from `from` on and end at `to` at the latest.
struct PackIndexRange {
  PackPlace from;
  PackPlace to;
  std::uint32_t lastCheck = 0;  // the check of the record that ends at `to`
};

/// Returns the file of an index; `entries` are sorted and at least one.
std::string MakePackIndex(const PackIndexRange& range, std::span<const PackIndexEntry> entries);

/// A file with places of records, sorted by the ids of their objects, which is never read whole: a
/// tree of pages, each with a check of its own.
class PackIndex {
 public:
  /// Opens an index; null for a file that isn't whole or can't be read.
  static std::unique_ptr<PackIndex> Open(std::unique_ptr<OpenedFile> file);

  const PackIndexRange& GetRange() const noexcept { return m_range; }
  std::uint64_t GetCount() const noexcept { return m_count; }

  /// Appends the places of the objects with that prefix. False if a page is damaged or can't be
  /// read; the index is of no use then. Cost: a read of one page, unless it is in memory, and a few
  /// more the first times.
  bool Find(std::uint64_t prefix, std::vector<std::uint64_t>& places);

  /// Appends all entries; false as for `Find`.
  bool ReadAll(std::vector<PackIndexEntry>& entries);

  /// Frees the pages that can be read again.
  void Trim() noexcept { m_leaves.clear(); }

  static constexpr std::size_t kPageSize = 4096;
  /// The most leaves that stay in memory, a megabyte of them.
  static constexpr std::size_t kMostLeaves = 256;

 private:
  explicit PackIndex(std::unique_ptr<OpenedFile> file) : m_file(std::move(file)) {}

  /// The pages of one level of the tree, which lie one after the other.
  struct Level {
    std::uint64_t firstPage = 0;
    std::uint64_t pages = 0;
    std::uint64_t items = 0;
  };
  using Page = std::array<char, kPageSize>;

  bool ReadHeader();
  bool ReadPage(std::uint64_t number, Page& page);
  const Page* BranchPage(std::uint64_t number);
  const Page* LeafPage(std::uint64_t leaf);
  bool FindLeaf(std::uint64_t prefix, std::uint64_t& leaf);

  std::unique_ptr<OpenedFile> m_file;
  PackIndexRange m_range;
  std::uint64_t m_count = 0;
  std::vector<Level> m_levels;                    // the leaves first, the root last
  std::vector<std::unique_ptr<Page>> m_branches;  // pages above the leaves that were read
  std::unordered_map<std::uint64_t, std::unique_ptr<Page>> m_leaves;  // some that were read
};

}  // namespace TalVcs::Kit
