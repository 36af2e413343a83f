#include <talvcs/foundation/internal/buffer_parts.h>
#include <talvcs/foundation/internal/prefetch.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace TalUtils::Memory {

std::vector<Buffer::ReadDataAccessor> Buffer::LockForRead() const {
  std::vector<ReadDataAccessor> accessors;
  const std::size_t count = GetSegmentCount();
  accessors.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    const auto bytes = GetSegment(index);
    Part* const owner = m_part->is_list ? m_part->AsList()->Segments()[index].owner : m_part.get();
    owner->holders.Acquire();
    accessors.push_back(ReadDataAccessor(owner, bytes.data(), bytes.size()));
  }
  return accessors;
}

void Buffer::Prefetch() const noexcept { PrefetchRange(m_part.get(), kPrefetchedHead); }

// Returns the segment that has the byte at `position`, which must be below the size.
std::size_t Buffer::FindSegment(std::uint64_t position) const noexcept {
  if (!m_part->is_list) return 0;
  auto* list = m_part->AsList();
  const Segment* begin = list->Segments();
  const Segment* found =
      std::upper_bound(begin, begin + list->count, position,
                       [](std::uint64_t at, const Segment& segment) { return at < segment.end; });
  return static_cast<std::size_t>(found - begin);
}

std::size_t Buffer::ReadAt(std::uint64_t position, void* target, std::size_t size) const noexcept {
  const std::uint64_t total = GetSize();
  if (position >= total || size == 0) return 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, total - position));
  auto* out = static_cast<std::byte*>(target);
  std::size_t index = FindSegment(position);
  const std::uint64_t start = m_part->is_list ? m_part->AsList()->StartOf(index) : 0;
  auto skipped = static_cast<std::size_t>(position - start);
  for (std::size_t done = 0; done < wanted; ++index) {
    const auto bytes = GetSegment(index).subspan(skipped);
    const std::size_t step = std::min(bytes.size(), wanted - done);
    std::memcpy(out + done, bytes.data(), step);
    done += step;
    skipped = 0;
  }
  return wanted;
}

// Returns the bytes of a segment for writing. A shared segment is copied first.
std::byte* Buffer::WritableSegment(std::size_t index) {
  const auto bytes = GetSegment(index);
  if (m_part->is_list) {
    auto* list = WritableList(0);
    Segment& segment = list->Segments()[index];
    const auto offset = static_cast<std::size_t>(segment.data - segment.owner->Bytes());
    if (segment.owner->holders.IsSole()) return segment.owner->Bytes() + offset;
    Block* copy = NewBlock(bytes.size());
    std::memcpy(copy->Bytes(), bytes.data(), bytes.size());
    copy->size = bytes.size();
    EndHold(std::exchange(segment.owner, copy));
    segment.data = copy->Bytes();
    return copy->Bytes();
  }
  auto* block = m_part->AsBlock();
  if (block->holders.IsSole()) return block->Bytes();
  Block* copy = NewBlock(bytes.size());
  std::memcpy(copy->Bytes(), bytes.data(), bytes.size());
  copy->size = bytes.size();
  m_part = CountedPtr<Part>(copy);
  return copy->Bytes();
}

void Buffer::WriteAt(std::uint64_t position, const void* data, std::size_t size) {
  if (size == 0) return;
  const std::uint64_t total = GetSize();
  if (position > total) Append(Buffer(static_cast<std::size_t>(position - total)));
  const auto* bytes = static_cast<const std::byte*>(data);
  std::size_t done = 0;
  if (position < total) {
    const auto over = static_cast<std::size_t>(std::min<std::uint64_t>(size, total - position));
    std::size_t index = FindSegment(position);
    const std::uint64_t start = m_part->is_list ? m_part->AsList()->StartOf(index) : 0;
    auto skipped = static_cast<std::size_t>(position - start);
    for (; done < over; ++index) {
      std::byte* target = WritableSegment(index);
      const std::size_t step = std::min(GetSegment(index).size() - skipped, over - done);
      std::memcpy(target + skipped, bytes + done, step);
      done += step;
      skipped = 0;
    }
  }
  Append(bytes + done, size - done);
}

Buffer::ReadDataAccessor::ReadDataAccessor(Part* owner, const void* data, std::size_t size) noexcept
    : m_owner(owner), m_data(data), m_size(size) {}

Buffer::ReadDataAccessor::ReadDataAccessor(const ReadDataAccessor& other) noexcept = default;

Buffer::ReadDataAccessor::ReadDataAccessor(ReadDataAccessor&& other) noexcept
    : m_owner(std::move(other.m_owner)),
      m_data(std::exchange(other.m_data, nullptr)),
      m_size(std::exchange(other.m_size, 0)) {}

Buffer::ReadDataAccessor& Buffer::ReadDataAccessor::operator=(ReadDataAccessor other) noexcept {
  std::swap(m_owner, other.m_owner);
  std::swap(m_data, other.m_data);
  std::swap(m_size, other.m_size);
  return *this;
}

Buffer::ReadDataAccessor::~ReadDataAccessor() = default;

}  // namespace TalUtils::Memory
