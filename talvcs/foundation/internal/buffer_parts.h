#pragma once

#include <talvcs/foundation/buffer.h>
#include <talvcs/foundation/internal/counted_block.h>

// A buffer holds one part:
//
//   nothing         no bytes
//   a Block         all bytes of that block
//   a List          segments, each a run of bytes in some block that the list holds
//
// Blocks and lists are counted. A block never changes while it has two holders, except in the
// unused room after its size, which no holder reads.

namespace TalUtils::Memory {

struct Buffer::Part : CountedBlock {
  bool is_list = false;

  List* AsList() noexcept;
  Block* AsBlock() noexcept;
  /// Frees a part that has no hold left, and ends the holds of a list.
  static void Free(Part* part) noexcept;
};

struct Buffer::Block : Part {
  std::size_t size = 0;
  std::size_t capacity = 0;

  std::byte* Bytes() noexcept { return FirstAfter<std::byte>(this); }
};

struct Buffer::Segment {
  Block* owner;
  const std::byte* data;
  std::uint64_t end;  // of the segment, counted from the start of the buffer
};

struct Buffer::List : Part {
  std::size_t count = 0;
  std::size_t capacity = 0;

  Segment* Segments() noexcept { return FirstAfter<Segment>(this); }
  std::uint64_t StartOf(std::size_t index) noexcept {
    return index == 0 ? 0 : Segments()[index - 1].end;
  }
  std::size_t SizeOf(std::size_t index) noexcept {
    return static_cast<std::size_t>(Segments()[index].end - StartOf(index));
  }
};

inline Buffer::List* Buffer::Part::AsList() noexcept { return static_cast<List*>(this); }
inline Buffer::Block* Buffer::Part::AsBlock() noexcept { return static_cast<Block*>(this); }

}  // namespace TalUtils::Memory
