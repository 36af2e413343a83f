#pragma once

#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/data_encoding.h>
#include <talvcs/foundation/internal/sha256.h>
#include <talvcs/objects/id.h>

#include <cstddef>
#include <span>

namespace TalVcs {

/// Returns the id that is the text of `digest`.
inline Id IdOfDigest(const TalUtils::Sha256::Digest& digest) {
  return Id(TalUtils::DataEncoding::HexEncode(digest.data(), digest.size()));
}

/// Returns the id of an object of `type` with these bytes as its data. `type` must not be longer
/// than a header has room for.
inline Id IdOfPacked(TalStringViewT<char> type, std::span<const std::byte> data) {
  const PackedHeader header(type, data.size());
  const std::span<const char> head(header.GetData(), header.GetSize());
  return IdOfDigest(TalUtils::Sha256::Compute(std::as_bytes(head), data));
}

}  // namespace TalVcs
