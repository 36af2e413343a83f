#pragma once

#include <talvcs/foundation/internal/sha256.h>

#include <cstddef>
#include <span>

namespace TalUtils {

/// A message of two runs of bytes, and where its digest goes.
struct Sha256Message {
  std::span<const std::byte> head;
  std::span<const std::byte> body;
  Sha256::Digest* digest;
};

/// Computes the digests of all messages. Where the processor can do two at once, that is faster
/// than one after the other.
void ComputeSha256(std::span<const Sha256Message> messages) noexcept;

/// The same with a given function, null for one message after the other.
void ComputeSha256(std::span<const Sha256Message> messages, Sha256::PairFunction function) noexcept;

}  // namespace TalUtils
