#include <talvcs/directory/internal/tree_entries.h>

#include <algorithm>
#include <limits>
#include <memory>

// The digest of a directory of which one entry was replaced. Header and length are those of the
// previous state, so the hash goes on from the last checkpoint before the chunk that is new:
//
//   previous   [ header ][ a b ][ c d ]^[ e f ][ g h ]^[ i j ][ k l ]      ^ checkpoint
//   new        [ header ][ a b ][ c d ]^[ e f ][ g H ] [ i j ][ k l ]
//                                       from here on
//
// Every commit that changes a file makes its directories this way. It saves three eighths of the
// blocks, and a fifth of the time of a history that changes one file after the other.

namespace TalVcs {

using TalUtils::Sha256;

TreeEntries::Checkpoint* TreeEntries::Checkpoints() const noexcept {
  return static_cast<Checkpoint*>(static_cast<void*>(ChunkArray() + m_capacity));
}

// Takes over the checkpoints of `previous` that lie in its first `equalChunks` chunks, which this
// list has as well. `previous` may be this list.
void TreeEntries::TakeCheckpoints(const TreeEntries& previous, std::size_t equalChunks) noexcept {
  std::uint8_t count = 0;
  while (count < previous.m_checkpointCount && previous.ChunkOfCheckpoint(count) <= equalChunks) {
    ++count;
  }
  if (&previous != this && m_hasRoomForCheckpoints) {
    std::uninitialized_copy_n(previous.Checkpoints(), count, Checkpoints());
    m_checkpointCount = count;
  } else {
    m_checkpointCount = std::min(m_checkpointCount, count);
  }
}

// Stores a checkpoint before `chunk` if one belongs there and the chunk before has the bytes since
// the last whole block, which a checkpoint does not contain.
void TreeEntries::LeaveCheckpoint(const Sha256& hash, std::size_t size,
                                  std::size_t chunk) noexcept {
  if (m_checkpointCount == kCheckpoints || chunk != ChunkOfCheckpoint(m_checkpointCount)) return;
  const Sha256::Checkpoint checkpoint = hash.GetCheckpoint();
  const std::uint64_t blocks = checkpoint.size / Sha256::kBlockSize;
  const std::size_t tail = size % Sha256::kBlockSize;
  if (ChunkArray()[chunk - 1]->Records().size() < tail) return;
  if (blocks > std::numeric_limits<std::uint32_t>::max()) return;
  ::new (Checkpoints() + m_checkpointCount) Checkpoint{
      checkpoint.state, static_cast<std::uint32_t>(blocks), static_cast<std::uint32_t>(tail)};
  ++m_checkpointCount;
}

Sha256::Digest TreeEntries::ComputeDigest(TreeEntries* list) {
  const PackedHeader header = HeaderOf(list);
  Sha256 hash;
  std::size_t size = header.GetSize();
  if (list == nullptr) {
    hash.Update(header.GetData(), size);
    return hash.Finish();
  }
  std::size_t first = 0;
  if (list->m_checkpointCount == 0) {
    hash.Update(header.GetData(), size);
  } else {
    const std::size_t latest = list->m_checkpointCount - std::size_t{1};
    const Checkpoint& last = list->Checkpoints()[latest];
    const std::uint64_t hashed = std::uint64_t{last.blocks} * Sha256::kBlockSize;
    first = list->ChunkOfCheckpoint(latest);
    size = static_cast<std::size_t>(hashed) + last.tail;
    const auto before = list->Chunks()[first - 1]->Records();
    hash = Sha256(Sha256::Checkpoint{last.state, hashed});
    hash.Update(before.last(last.tail).data(), last.tail);
  }
  // A list with room may have lost chunks since.
  const bool leaves_checkpoints = list->m_hasRoomForCheckpoints &&
                                  list->m_chunkCount >= kFewestChunksForCheckpoints &&
                                  list->holders.IsSole();
  list->VisitChunks(first, [&](const EntryChunk& chunk, std::size_t index) {
    if (leaves_checkpoints) list->LeaveCheckpoint(hash, size, index);
    const auto records = chunk.Records();
    hash.Update(records.data(), records.size());
    size += records.size();
  });
  return hash.Finish();
}

}  // namespace TalVcs
