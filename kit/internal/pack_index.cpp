#include <kit/internal/checksum.h>
#include <kit/internal/little_endian.h>
#include <kit/internal/pack_index.h>

#include <algorithm>
#include <utility>

// The layout of an index, as docs/formats.md describes it; numbers are little-endian:
//
//     index  := page*                  the header, the leaves, the levels above, the root last
//     page   := 4,092 bytes, filled up with zeros, and their CRC-32
//     header := "TalVcs pack index 1" LF from to check count
//     leaf   := entry*                 255 of them, fewer in the last leaf
//     entry  := prefix place           ascending
//     branch := prefix*                the first prefixes of up to 511 pages of the level below
//
// A level has as many pages as its items fill, so no page says where another one is. The level
// that has one page is the root.

namespace TalVcs::Kit {

namespace {

constexpr std::string_view kTitle = "TalVcs pack index 1\n";
constexpr std::size_t kBodySize = PackIndex::kPageSize - 4;
constexpr std::size_t kEntrySize = 16;
constexpr std::size_t kPrefixSize = 8;
constexpr std::uint64_t kLeafItems = kBodySize / kEntrySize;
constexpr std::uint64_t kBranchItems = kBodySize / kPrefixSize;

std::uint64_t PagesFor(std::uint64_t items, std::uint64_t each) {
  return items / each + (items % each == 0 ? 0 : 1);
}

void EndPage(std::string& bytes) {
  const std::size_t from = (bytes.size() - 1) / PackIndex::kPageSize * PackIndex::kPageSize;
  bytes.resize(from + kBodySize, '\0');
  PutNumber(bytes, ChecksumOf(std::string_view(bytes).substr(from)), 4);
}

std::uint64_t NumberAt(std::string_view bytes, std::size_t position) {
  return NumberOf(bytes.substr(position, 8));
}

}  // namespace

std::uint64_t PrefixOf(const ObjectKey& key) noexcept {
  std::uint64_t prefix = 0;
  for (std::size_t index = 0; index < kPrefixSize; ++index) prefix = prefix << 8 | key[index];
  return prefix;
}

std::string MakePackIndex(const PackIndexRange& range, std::span<const PackIndexEntry> entries) {
  std::string bytes(kTitle);
  PutNumber(bytes, NumberFromPlace(range.from), 8);
  PutNumber(bytes, NumberFromPlace(range.to), 8);
  PutNumber(bytes, range.lastCheck, 4);
  PutNumber(bytes, entries.size(), 8);
  EndPage(bytes);
  std::vector<std::uint64_t> firsts;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    if (index % kLeafItems == 0) firsts.push_back(entries[index].prefix);
    PutNumber(bytes, entries[index].prefix, 8);
    PutNumber(bytes, entries[index].place, 8);
    if ((index + 1) % kLeafItems == 0 || index + 1 == entries.size()) EndPage(bytes);
  }
  while (firsts.size() > 1) {
    std::vector<std::uint64_t> above;
    for (std::size_t index = 0; index < firsts.size(); ++index) {
      if (index % kBranchItems == 0) above.push_back(firsts[index]);
      PutNumber(bytes, firsts[index], 8);
      if ((index + 1) % kBranchItems == 0 || index + 1 == firsts.size()) EndPage(bytes);
    }
    firsts = std::move(above);
  }
  return bytes;
}

std::unique_ptr<PackIndex> PackIndex::Open(std::unique_ptr<OpenedFile> file) {
  std::unique_ptr<PackIndex> index(new PackIndex(std::move(file)));
  return index->ReadHeader() ? std::move(index) : nullptr;
}

bool PackIndex::ReadHeader() {
  Page page;
  if (!ReadPage(0, page)) return false;
  const std::string_view bytes(page.data(), page.size());
  if (!bytes.starts_with(kTitle)) return false;
  m_range.from = PlaceFromNumber(NumberAt(bytes, kTitle.size()));
  m_range.to = PlaceFromNumber(NumberAt(bytes, kTitle.size() + 8));
  m_range.lastCheck = static_cast<std::uint32_t>(NumberOf(bytes.substr(kTitle.size() + 16, 4)));
  m_count = NumberAt(bytes, kTitle.size() + 20);
  std::uint64_t size = 0;
  if (m_file->GetSize(size) || m_count == 0 || m_count > size / kEntrySize) return false;
  std::uint64_t next = 1;
  Level level{next, PagesFor(m_count, kLeafItems), m_count};
  for (;;) {
    m_levels.push_back(level);
    next += level.pages;
    if (level.pages == 1) break;
    level = {next, PagesFor(level.pages, kBranchItems), level.pages};
  }
  m_branches.resize(static_cast<std::size_t>(next - 1 - m_levels.front().pages));
  return size == next * kPageSize;
}

bool PackIndex::ReadPage(std::uint64_t number, Page& page) {
  std::size_t count = 0;
  if (m_file->ReadAt(number * kPageSize, page.data(), page.size(), count)) return false;
  const std::string_view bytes(page.data(), count);
  return count == kPageSize &&
         NumberOf(bytes.substr(kBodySize)) == ChecksumOf(bytes.substr(0, kBodySize));
}

const PackIndex::Page* PackIndex::BranchPage(std::uint64_t number) {
  auto& kept = m_branches[static_cast<std::size_t>(number - 1 - m_levels.front().pages)];
  if (!kept) {
    auto page = std::make_unique<Page>();
    if (!ReadPage(number, *page)) return nullptr;
    kept = std::move(page);
  }
  return kept.get();
}

// The check of a page takes longer than a search in it.
const PackIndex::Page* PackIndex::LeafPage(std::uint64_t leaf) {
  const auto kept = m_leaves.find(leaf);
  if (kept != m_leaves.end()) return kept->second.get();
  auto page = std::make_unique<Page>();
  if (!ReadPage(1 + leaf, *page)) return nullptr;
  if (m_leaves.size() >= kMostLeaves) m_leaves.clear();
  return (m_leaves[leaf] = std::move(page)).get();
}

/// Finds the first leaf that may have the prefix.
bool PackIndex::FindLeaf(std::uint64_t prefix, std::uint64_t& leaf) {
  leaf = 0;
  for (std::size_t level = m_levels.size() - 1; level > 0; --level) {
    const Page* page = BranchPage(m_levels[level].firstPage + leaf);
    if (page == nullptr) return false;
    const std::string_view bytes(page->data(), page->size());
    std::uint64_t first = 0;
    std::uint64_t count = std::min(kBranchItems, m_levels[level].items - leaf * kBranchItems);
    // The last page whose first prefix is lower, else the first page: equal ones may begin there.
    while (count > 1) {
      const std::uint64_t half = count / 2;
      const std::size_t at = static_cast<std::size_t>((first + half) * kPrefixSize);
      if (NumberAt(bytes, at) < prefix) first += half;
      count = NumberAt(bytes, at) < prefix ? count - half : half;
    }
    leaf = leaf * kBranchItems + first;
  }
  return true;
}

bool PackIndex::Find(std::uint64_t prefix, std::vector<std::uint64_t>& places) {
  std::uint64_t leaf = 0;
  if (!FindLeaf(prefix, leaf)) return false;
  for (; leaf < m_levels.front().pages; ++leaf) {
    const Page* page = LeafPage(leaf);
    if (page == nullptr) return false;
    const std::string_view bytes(page->data(), page->size());
    const std::uint64_t count = std::min(kLeafItems, m_count - leaf * kLeafItems);
    std::uint64_t first = 0;
    std::uint64_t end = count;
    while (first < end) {
      const std::uint64_t middle = (first + end) / 2;
      if (NumberAt(bytes, static_cast<std::size_t>(middle * kEntrySize)) < prefix) {
        first = middle + 1;
      } else {
        end = middle;
      }
    }
    for (; first < count; ++first) {
      const std::size_t at = static_cast<std::size_t>(first * kEntrySize);
      if (NumberAt(bytes, at) != prefix) return true;
      places.push_back(NumberAt(bytes, at + kPrefixSize));
    }
  }
  return true;
}

bool PackIndex::ReadAll(std::vector<PackIndexEntry>& entries) {
  entries.reserve(entries.size() + static_cast<std::size_t>(m_count));
  for (std::uint64_t leaf = 0; leaf < m_levels.front().pages; ++leaf) {
    Page page;
    if (!ReadPage(1 + leaf, page)) return false;
    const std::string_view bytes(page.data(), page.size());
    const std::uint64_t count = std::min(kLeafItems, m_count - leaf * kLeafItems);
    for (std::uint64_t item = 0; item < count; ++item) {
      const std::size_t at = static_cast<std::size_t>(item * kEntrySize);
      entries.push_back({NumberAt(bytes, at), NumberAt(bytes, at + kPrefixSize)});
    }
  }
  return true;
}

}  // namespace TalVcs::Kit
