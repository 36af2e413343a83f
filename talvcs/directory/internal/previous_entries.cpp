#include <talvcs/directory/internal/previous_entries.h>

#include <cstring>

namespace TalVcs {

namespace {

bool BeginsWith(TalStringViewT<char> list, const void* bytes, std::size_t size) noexcept {
  return size != 0 && size <= static_cast<std::size_t>(list.length) &&
         std::memcmp(list.text, bytes, size) == 0;
}

}  // namespace

PreviousEntries::PreviousEntries(const TreeEntries* list) noexcept : m_list(list) {
  if (m_list != nullptr) m_chunks = m_list->Chunks();
}

PreviousEntries::PreviousEntries(const Tree* tree) noexcept
    : PreviousEntries(tree == nullptr ? nullptr : TreeAccess::Entries(*tree)) {}

void PreviousEntries::SkipThrough(TalStringViewT<WideChar> name) noexcept {
  if (name.IsEmpty()) return;
  while (!AtEnd() && m_chunks.front()->Name(m_slot).Compare(name) <= 0) SkipEntry();
}

void PreviousEntries::SkipChunk() noexcept {
  m_chunks = m_chunks.subspan(1);
  m_slot = 0;
}

void PreviousEntries::SkipEntry() noexcept {
  if (++m_slot == m_chunks.front()->Count()) SkipChunk();
}

EntryChunk* PreviousEntries::ChunkThatBegins(TalStringViewT<char> list) const noexcept {
  EntryChunk* chunk = m_chunks.front();
  if (m_slot != 0 || !chunk->HasWholeRecords()) return nullptr;
  const auto records = chunk->Records();
  return BeginsWith(list, records.data(), records.size()) ? chunk : nullptr;
}

std::optional<EntryChunk::Slot> PreviousEntries::EntryThatBegins(
    TalStringViewT<char> list) const noexcept {
  const EntryChunk& chunk = *m_chunks.front();
  if (!chunk.HasWholeRecords()) return std::nullopt;
  const EntryChunk::Slot slot = chunk.At(m_slot);
  const bool begins =
      BeginsWith(list, slot.record.text, static_cast<std::size_t>(slot.record.length));
  return begins ? std::optional(slot) : std::nullopt;
}

const Tree* PreviousEntries::Subtree(TalStringViewT<WideChar> name) const noexcept {
  return static_cast<const Tree*>(TreeEntries::Find(m_list, name, EntryKind::Tree).Present());
}

}  // namespace TalVcs
