#pragma once

#include <talvcs/foundation/buffer.h>
#include <talvcs/foundation/internal/ref_count.h>

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

}  // namespace TalUtils::Memory
