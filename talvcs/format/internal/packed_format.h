#pragma once

#include <talvcs/format/object_type.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace TalVcs {

// packed := header data
// header := type SP size NUL      type: "blob", "tree" or "commit"
//                                 size: bytes of data, decimal, without leading zeros

/// The contents of a header.
struct PackedHeaderFields {
  ObjectType type;
  std::size_t headerBytes;
  std::uint64_t dataBytes;
};

/// Reads the header of `packed`. Returns nothing unless it has exactly the form above and `packed`
/// holds exactly the data that the header announces.
std::optional<PackedHeaderFields> ReadPackedHeader(const Buffer& packed) noexcept;

}  // namespace TalVcs
