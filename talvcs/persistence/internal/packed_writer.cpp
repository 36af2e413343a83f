#include <talvcs/persistence/internal/packed_writer.h>

#include <talvcs/format/internal/packed_format.h>
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
  PutHeader(Blob::kType, data.GetSize());
  Write(data);
}

void PackedWriter::Write(const Tree& tree) {
  if (!tree.CachedPackedData().IsEmpty() || !TalUtils::IsExactly<Tree>(tree)) {
    Write(tree.GetPackedData());
    return;
  }
  const TreeEntries* entries = TreeAccess::Entries(tree);
  PutHeader(Tree::kType, entries == nullptr ? 0 : entries->RecordBytes());
  if (entries == nullptr) return;
  const auto chunks = entries->Chunks();
  for (std::size_t index = 0; index < chunks.size(); ++index) {
    EntryChunk::PrefetchAhead(chunks, index);
    const auto records = chunks[index]->Records();
    Put(records.data(), records.size());
  }
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

void PackedWriter::PutHeader(TalStringViewT<char> type, std::uint64_t size) {
  const PackedHeader header(type, size);
  Put(header.GetData(), header.GetSize());
}

void PackedWriter::Pass(const void* data, std::size_t size) {
  if (!m_failed) m_failed = m_stream.Write(data, size) != size;
}

}  // namespace TalVcs
