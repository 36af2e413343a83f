#include <talvcs/persistence/internal/packed_writer.h>

#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/internal/tree_access.h>

#include <cstring>

namespace TalVcs {

void PackedWriter::Write(const Blob& blob) {
  if (!blob.CachedPackedData().IsEmpty() || !TalUtils::IsExactly<Blob>(blob)) {
    Write(blob.GetPackedData());
    return;
  }
  const Buffer& data = blob.GetData();
  Put(PackedHeader(Blob::kType, data.GetSize()));
  Write(data);
}

void PackedWriter::Write(const Tree& tree) {
  if (!tree.CachedPackedData().IsEmpty() || !TalUtils::IsExactly<Tree>(tree)) {
    Write(tree.GetPackedData());
    return;
  }
  const TreeEntries* entries = TreeAccess::Entries(tree);
  Put(TreeEntries::HeaderOf(entries));
  if (entries == nullptr) return;
  entries->VisitChunks(0, [this](const EntryChunk& chunk, std::size_t) {
    const auto records = chunk.Records();
    Put(records.data(), records.size());
  });
}

void PackedWriter::Write(const Commit& commit) { Write(commit.BuildPackedData()); }

void PackedWriter::Write(const Buffer& bytes) {
  for (std::size_t index = 0; index < bytes.GetSegmentCount(); ++index) {
    const auto segment = bytes.GetSegment(index);
    Put(segment.data(), segment.size());
  }
}

void PackedWriter::Flush() {
  if (m_gathered != 0) Pass(m_piece.data(), m_gathered);
  m_gathered = 0;
}

void PackedWriter::Put(const void* data, std::size_t size) {
  if (size > m_piece.size() - m_gathered) {
    Flush();
    if (size > m_piece.size()) {
      Pass(data, size);
      return;
    }
  }
  if (size == 0) return;
  std::memcpy(m_piece.data() + m_gathered, data, size);
  m_gathered += size;
}

void PackedWriter::Put(const PackedHeader& header) { Put(header.GetData(), header.GetSize()); }

void PackedWriter::Pass(const void* data, std::size_t size) {
  if (!m_failed) m_failed = m_stream.Write(data, size) != size;
}

}  // namespace TalVcs
