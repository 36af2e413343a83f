#include <talvcs/foundation/buffer.h>

#include <talvcs/foundation/ref_count.h>
#include <talvcs/foundation/stream.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

// A buffer holds one part:
//
//   nothing         no bytes
//   a Block         all bytes of that block
//   a List          segments, each a run of bytes in some block that the list holds
//
// Blocks and lists are counted. A block never changes while it has two holders, but for the unused
// room behind its size, which nobody can see.

namespace TalUtils::Memory {

struct Buffer::Part {
  RefCount holders;
  bool is_list;
};

struct Buffer::Block : Part {
  std::size_t size;
  std::size_t capacity;

  std::byte* Bytes() noexcept {
    return static_cast<std::byte*>(static_cast<void*>(this)) + sizeof(Block);
  }
};

struct Buffer::Segment {
  Block* owner;
  const std::byte* data;
  std::uint64_t end;  // of the segment, counted from the start of the buffer
};

struct Buffer::List : Part {
  std::size_t count;
  std::size_t capacity;

  Segment* Segments() noexcept {
    return static_cast<Segment*>(
        static_cast<void*>(static_cast<std::byte*>(static_cast<void*>(this)) + sizeof(List)));
  }
  std::uint64_t StartOf(std::size_t index) noexcept {
    return index == 0 ? 0 : Segments()[index - 1].end;
  }
  std::size_t SizeOf(std::size_t index) noexcept {
    return static_cast<std::size_t>(Segments()[index].end - StartOf(index));
  }
};

namespace {

constexpr std::size_t kSmallestGrowth = 64;
constexpr std::size_t kLargestGrowth = std::size_t{1} << 20;

}  // namespace

Buffer::Block* Buffer::NewBlock(std::size_t capacity) {
  if (capacity > static_cast<std::size_t>(-1) / 2) throw std::length_error("buffer too long");
  void* memory = ::operator new(sizeof(Block) + capacity);
  return ::new (memory) Block{{{}, false}, 0, capacity};
}

Buffer::List* Buffer::NewList(std::size_t capacity) {
  static_assert(sizeof(List) % alignof(Segment) == 0);
  if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(Segment)) {
    throw std::length_error("buffer too long");
  }
  void* memory = ::operator new(sizeof(List) + capacity * sizeof(Segment));
  return ::new (memory) List{{{}, true}, 0, capacity};
}

void Buffer::Acquire(Part* part) noexcept {
  if (part != nullptr) part->holders.Acquire();
}

void Buffer::Release(Part* part) noexcept {
  if (part == nullptr || !part->holders.Release()) return;
  if (part->is_list) {
    auto* list = static_cast<List*>(part);
    for (std::size_t index = 0; index < list->count; ++index) {
      Release(list->Segments()[index].owner);
    }
    std::destroy_at(list);
    ::operator delete(list);
  } else {
    auto* block = static_cast<Block*>(part);
    std::destroy_at(block);
    ::operator delete(block);
  }
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
  buffer.m_part = block;
  return buffer;
}

Buffer::Buffer(const Buffer& other) noexcept : m_part(other.m_part) { Acquire(m_part); }

Buffer::Buffer(Buffer&& other) noexcept : m_part(std::exchange(other.m_part, nullptr)) {}

Buffer& Buffer::operator=(const Buffer& other) noexcept {
  Acquire(other.m_part);
  Release(std::exchange(m_part, other.m_part));
  return *this;
}

Buffer& Buffer::operator=(Buffer&& other) noexcept {
  Part* taken = std::exchange(other.m_part, nullptr);
  Release(std::exchange(m_part, taken));
  return *this;
}

Buffer::~Buffer() { Release(m_part); }

std::uint64_t Buffer::GetSize() const noexcept {
  if (m_part == nullptr) return 0;
  if (!m_part->is_list) return static_cast<Block*>(m_part)->size;
  auto* list = static_cast<List*>(m_part);
  return list->StartOf(list->count);
}

std::size_t Buffer::GetSegmentCount() const noexcept {
  if (m_part == nullptr) return 0;
  return m_part->is_list ? static_cast<List*>(m_part)->count : 1;
}

std::span<const std::byte> Buffer::GetSegment(std::size_t index) const noexcept {
  if (!m_part->is_list) {
    auto* block = static_cast<Block*>(m_part);
    return {block->Bytes(), block->size};
  }
  auto* list = static_cast<List*>(m_part);
  return {list->Segments()[index].data, list->SizeOf(index)};
}

// Makes the part a list that this buffer alone holds, with room for `more` segments.
Buffer::List* Buffer::WritableList(std::size_t more) {
  const std::size_t count = GetSegmentCount();
  if (m_part != nullptr && m_part->is_list) {
    auto* list = static_cast<List*>(m_part);
    if (list->holders.IsSole() && list->capacity - count >= more) return list;
  }
  const bool grows = m_part != nullptr && m_part->is_list && m_part->holders.IsSole();
  List* list = NewList(std::max(count + more, grows ? count * 2 : count));
  if (m_part != nullptr && !m_part->is_list) {
    auto* block = static_cast<Block*>(m_part);
    ::new (list->Segments()) Segment{block, block->Bytes(), block->size};
    list->count = 1;
  } else if (m_part != nullptr) {
    auto* old = static_cast<List*>(m_part);
    std::uninitialized_copy_n(old->Segments(), count, list->Segments());
    list->count = count;
    for (std::size_t index = 0; index < count; ++index) Acquire(list->Segments()[index].owner);
    Release(old);
  }
  m_part = list;
  return list;
}

// Takes over the caller's hold of `owned`. There has to be room in the writable list.
void Buffer::PushSegment(Block* owned, const std::byte* data, std::size_t size) {
  auto* list = static_cast<List*>(m_part);
  ::new (list->Segments() + list->count)
      Segment{owned, data, list->StartOf(list->count) + size};
  ++list->count;
}

// Returns how many bytes fit behind the last one without anybody else seeing it.
std::size_t Buffer::RoomInPlace() const noexcept {
  if (!m_part->holders.IsSole()) return 0;
  Block* block = nullptr;
  if (!m_part->is_list) {
    block = static_cast<Block*>(m_part);
  } else {
    auto* list = static_cast<List*>(m_part);
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
    auto* list = static_cast<List*>(m_part);
    Segment& segment = list->Segments()[list->count - 1];
    segment.end += size;
    block = segment.owner;
  } else {
    block = static_cast<Block*>(m_part);
  }
  std::memcpy(block->Bytes() + block->size, data, size);
  block->size += size;
}

bool Buffer::Append(const void* data, std::size_t size, std::size_t) {
  if (size == 0) return true;
  if (data == nullptr) return false;
  const auto* bytes = static_cast<const std::byte*>(data);
  if (m_part == nullptr) {
    Block* block = NewBlock(size);
    std::memcpy(block->Bytes(), bytes, size);
    block->size = size;
    m_part = block;
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
  if (m_part == nullptr) {
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
  if (position == 0 && stop == total && m_part == nullptr) {
    *this = source;
    return;
  }
  const bool listed = source.m_part->is_list;
  std::uint64_t start = 0;
  const std::size_t first = source.FindSegment(position);
  if (listed) start = static_cast<List*>(source.m_part)->StartOf(first);
  for (std::size_t index = first; start < stop; ++index) {
    const auto bytes = source.GetSegment(index);
    const auto from = static_cast<std::size_t>(std::max(position, start) - start);
    const auto to = static_cast<std::size_t>(std::min<std::uint64_t>(stop - start, bytes.size()));
    WritableList(index == first ? source.GetSegmentCount() - first : 1);
    Block* owner = listed ? static_cast<List*>(source.m_part)->Segments()[index].owner
                          : static_cast<Block*>(source.m_part);
    Acquire(owner);
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

std::vector<Buffer::ReadDataAccessor> Buffer::LockForRead() const {
  std::vector<ReadDataAccessor> accessors;
  const std::size_t count = GetSegmentCount();
  accessors.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    const auto bytes = GetSegment(index);
    Part* owner = m_part->is_list ? static_cast<List*>(m_part)->Segments()[index].owner : m_part;
    Acquire(owner);
    accessors.push_back(ReadDataAccessor(owner, bytes.data(), bytes.size()));
  }
  return accessors;
}

// Returns the segment that holds the byte at `position`, which has to be below the size.
std::size_t Buffer::FindSegment(std::uint64_t position) const noexcept {
  if (!m_part->is_list) return 0;
  auto* list = static_cast<List*>(m_part);
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
  const std::uint64_t start = m_part->is_list ? static_cast<List*>(m_part)->StartOf(index) : 0;
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

// Returns the bytes of a segment for writing; a segment that somebody else can see is copied.
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
    Release(std::exchange(segment.owner, copy));
    segment.data = copy->Bytes();
    return copy->Bytes();
  }
  auto* block = static_cast<Block*>(m_part);
  if (block->holders.IsSole()) return block->Bytes();
  Block* copy = NewBlock(bytes.size());
  std::memcpy(copy->Bytes(), bytes.data(), bytes.size());
  copy->size = bytes.size();
  Release(std::exchange(m_part, copy));
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
    const std::uint64_t start = m_part->is_list ? static_cast<List*>(m_part)->StartOf(index) : 0;
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

Buffer::ReadDataAccessor::ReadDataAccessor(const ReadDataAccessor& other) noexcept
    : m_owner(other.m_owner), m_data(other.m_data), m_size(other.m_size) {
  Acquire(m_owner);
}

Buffer::ReadDataAccessor::ReadDataAccessor(ReadDataAccessor&& other) noexcept
    : m_owner(std::exchange(other.m_owner, nullptr)),
      m_data(std::exchange(other.m_data, nullptr)),
      m_size(std::exchange(other.m_size, 0)) {}

Buffer::ReadDataAccessor& Buffer::ReadDataAccessor::operator=(ReadDataAccessor other) noexcept {
  std::swap(m_owner, other.m_owner);
  std::swap(m_data, other.m_data);
  std::swap(m_size, other.m_size);
  return *this;
}

Buffer::ReadDataAccessor::~ReadDataAccessor() { Release(m_owner); }

}  // namespace TalUtils::Memory
