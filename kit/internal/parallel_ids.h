#pragma once

#include <talvcs/objects/blob.h>

#include <span>

namespace TalVcs::Kit {

/// Computes and caches the ids of `blobs` on up to `threads` threads, one of which is the caller's.
/// Skips null pointers. Each pointer is a blob of its own; several blobs may share their bytes.
///
/// Starts fewer threads where there is too little to hash or where the system refuses one. An id
/// whose computation lacks memory stays uncomputed, as if this hadn't been called.
void ComputeIdsOnThreads(std::span<const Blob* const> blobs, unsigned threads);

}  // namespace TalVcs::Kit
