#include <talvcs/foundation/buffer.h>

#include <talvcs/foundation/internal/buffer_parts.h>
#include <talvcs/foundation/stream.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace TalUtils::Memory {

namespace {

constexpr std::size_t kSmallestGrowth = 64;
constexpr std::size_t kLargestGrowth = std::size_t{1} << 20;

}  // namespace

Buffer::Block* Buffer::NewBlock(std::size_t capacity) {
  if (capacity > static_cast<std::size_t>(-1) / 2) throw std::length_error("buffer too long");
  auto* const block = NewCountedBlock<Block>(capacity);
  block->capacity = capacity;
  return block;
}

Buffer::List* Buffer::NewList(std::size_t capacity) {
  if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(Segment)) {
    throw std::length_error("buffer too long");
  }
  auto* const list = NewCountedBlock<List>(capacity * sizeof(Segment));
  list->is_list = true;
  list->capacity = capacity;
  return list;
}

void Buffer::Part::Free(Part* part) noexcept {
  if (!part->is_list) {
    FreeCountedBlock(part->AsBlock());
    return;
  }
  List* const list = part->AsList();
  for (std::size_t index = 0; index < list->count; ++index) EndHold(list->Segments()[index].owner);
  FreeCountedBlock(list);
}

Buffer::Buffer(std::size_t size) {
  if (size == 0) return;
  std::byte* bytes = nullptr;
  *this = Allocate(size, bytes);
  std::memset(bytes, 0, size);
}

Buffer Buffer::Allocate(std::size_t size, std::byte*& bytes) {
  Block* block = NewBlock(size);
  block->size = size;
  bytes = block->Bytes();
  Buffer buffer;
  buffer.m_part = CountedPtr<Part>(block);
  return buffer;
}

Buffer::Buffer(const Buffer& other) noexcept = default;
Buffer::Buffer(Buffer&& other) noexcept = default;
Buffer& Buffer::operator=(const Buffer& other) noexcept = default;
Buffer& Buffer::operator=(Buffer&& other) noexcept = default;
Buffer::~Buffer() = default;

std::uint64_t Buffer::GetSize() const noexcept {
  if (!m_part) return 0;
  if (!m_part->is_list) return m_part->AsBlock()->size;
  auto* list = m_part->AsList();
  return list->StartOf(list->count);
}

std::size_t Buffer::GetSegmentCount() const noexcept {
  if (!m_part) return 0;
  return m_part->is_list ? m_part->AsList()->count : 1;
}

std::span<const std::byte> Buffer::GetSegment(std::size_t index) const noexcept {
  if (!m_part->is_list) {
    auto* block = m_part->AsBlock();
    return {block->Bytes(), block->size};
  }
  auto* list = m_part->AsList();
  return {list->Segments()[index].data, list->SizeOf(index)};
}

// Makes the part a list that this buffer alone holds, with room for `more` segments.
Buffer::List* Buffer::WritableList(std::size_t more) {
  const std::size_t count = GetSegmentCount();
  if (m_part && m_part->is_list) {
    auto* list = m_part->AsList();
    if (list->holders.IsSole() && list->capacity - count >= more) return list;
  }
  const bool grows = m_part && m_part->is_list && m_part->holders.IsSole();
  List* list = NewList(std::max(count + more, grows ? count * 2 : count));
  if (m_part && !m_part->is_list) {
    Block* const block = m_part.Disown()->AsBlock();
    ::new (list->Segments()) Segment{block, block->Bytes(), block->size};
    list->count = 1;
  } else if (m_part) {
    auto* old = m_part->AsList();
    std::uninitialized_copy_n(old->Segments(), count, list->Segments());
    list->count = count;
    for (std::size_t index = 0; index < count; ++index) {
      list->Segments()[index].owner->holders.Acquire();
    }
  }
  m_part = CountedPtr<Part>(list);
  return list;
}

// Takes over the caller's hold of `owned`. There has to be room in the writable list.
void Buffer::PushSegment(Block* owned, const std::byte* data, std::size_t size) {
  auto* list = m_part->AsList();
  ::new (list->Segments() + list->count) Segment{owned, data, list->StartOf(list->count) + size};
  ++list->count;
}

// Returns how many bytes fit after the last one in memory that no other buffer reads.
std::size_t Buffer::RoomInPlace() const noexcept {
  if (!m_part->holders.IsSole()) return 0;
  Block* block = nullptr;
  if (!m_part->is_list) {
    block = m_part->AsBlock();
  } else {
    auto* list = m_part->AsList();
    if (list->count == 0) return 0;
    const std::size_t last = list->count - 1;
    const Segment& segment = list->Segments()[last];
    block = segment.owner;
    const bool ends_block = segment.data + list->SizeOf(last) == block->Bytes() + block->size;
    if (!ends_block || !block->holders.IsSole()) return 0;
  }
  return block->capacity - block->size;
}

void Buffer::FillInPlace(const std::byte* data, std::size_t size) noexcept {
  Block* block = nullptr;
  if (m_part->is_list) {
    auto* list = m_part->AsList();
    Segment& segment = list->Segments()[list->count - 1];
    segment.end += size;
    block = segment.owner;
  } else {
    block = m_part->AsBlock();
  }
  std::memcpy(block->Bytes() + block->size, data, size);
  block->size += size;
}

bool Buffer::Append(const void* data, std::size_t size, std::size_t) {
  if (size == 0) return true;
  if (data == nullptr) return false;
  const auto* bytes = static_cast<const std::byte*>(data);
  if (!m_part) {
    Block* block = NewBlock(size);
    std::memcpy(block->Bytes(), bytes, size);
    block->size = size;
    m_part = CountedPtr<Part>(block);
    return true;
  }
  const std::size_t room = RoomInPlace();
  if (size <= room) {
    FillInPlace(bytes, size);
    return true;
  }
  const std::size_t rest = size - room;
  const auto growth = static_cast<std::size_t>(std::min<std::uint64_t>(GetSize(), kLargestGrowth));
  WritableList(1);
  Block* block = NewBlock(std::max({rest, growth, kSmallestGrowth}));
  std::memcpy(block->Bytes(), bytes + room, rest);
  block->size = rest;
  if (room != 0) FillInPlace(bytes, room);
  PushSegment(block, block->Bytes(), rest);
  return true;
}

void Buffer::Append(const Buffer& source) {
  if (!m_part) {
    *this = source;
    return;
  }
  AppendRange(source, 0, source.GetSize());
}

void Buffer::AppendRange(const Buffer& source, std::uint64_t position, std::uint64_t size) {
  if (this == &source) {
    AppendRange(Buffer(source), position, size);
    return;
  }
  const std::uint64_t total = source.GetSize();
  if (position >= total || size == 0) return;
  const std::uint64_t stop = position + std::min(size, total - position);
  if (position == 0 && stop == total && !m_part) {
    *this = source;
    return;
  }
  const bool listed = source.m_part->is_list;
  std::uint64_t start = 0;
  const std::size_t first = source.FindSegment(position);
  if (listed) start = source.m_part->AsList()->StartOf(first);
  for (std::size_t index = first; start < stop; ++index) {
    const auto bytes = source.GetSegment(index);
    const auto from = static_cast<std::size_t>(std::max(position, start) - start);
    const auto to = static_cast<std::size_t>(std::min<std::uint64_t>(stop - start, bytes.size()));
    WritableList(index == first ? source.GetSegmentCount() - first : 1);
    Block* owner =
        listed ? source.m_part->AsList()->Segments()[index].owner : source.m_part->AsBlock();
    owner->holders.Acquire();
    PushSegment(owner, bytes.data() + from, to - from);
    start += bytes.size();
  }
}

void Buffer::ReserveSegments(std::size_t segments) { WritableList(segments); }

bool Buffer::AppendTo(Stream stream, std::size_t* written) const {
  const std::uint64_t taken = stream.Write(*this);
  if (written != nullptr) *written = static_cast<std::size_t>(taken);
  return taken == GetSize();
}

}  // namespace TalUtils::Memory
