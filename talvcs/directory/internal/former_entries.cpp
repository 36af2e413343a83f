#include <talvcs/directory/internal/former_entries.h>

#include <cstring>

namespace TalVcs {

namespace {

bool BeginsWith(TalStringViewT<char> list, const void* bytes, std::size_t size) noexcept {
  return size != 0 && size <= static_cast<std::size_t>(list.length) &&
         std::memcmp(list.text, bytes, size) == 0;
}

}  // namespace

FormerEntries::FormerEntries(const TreeEntries* list) noexcept : m_list(list) {
  if (m_list != nullptr) m_chunks = m_list->Chunks();
}

FormerEntries::FormerEntries(const Tree* tree) noexcept
    : FormerEntries(tree == nullptr ? nullptr : TreeAccess::Entries(*tree)) {}

void FormerEntries::SkipThrough(TalStringViewT<WideChar> name) noexcept {
  if (name.IsEmpty()) return;
  while (!AtEnd() && m_chunks.front()->Name(m_slot).Compare(name) <= 0) SkipEntry();
}

void FormerEntries::SkipChunk() noexcept {
  m_chunks = m_chunks.subspan(1);
  m_slot = 0;
}

void FormerEntries::SkipEntry() noexcept {
  if (++m_slot == m_chunks.front()->Count()) SkipChunk();
}

EntryChunk* FormerEntries::ChunkThatBegins(TalStringViewT<char> list) const noexcept {
  EntryChunk* chunk = m_chunks.front();
  if (m_slot != 0 || !chunk->IsFaithful()) return nullptr;
  const auto records = chunk->Records();
  return BeginsWith(list, records.data(), records.size()) ? chunk : nullptr;
}

std::optional<EntryChunk::Slot> FormerEntries::EntryThatBegins(
    TalStringViewT<char> list) const noexcept {
  const EntryChunk& chunk = *m_chunks.front();
  if (!chunk.IsFaithful()) return std::nullopt;
  const EntryChunk::Slot slot = chunk.At(m_slot);
  const bool begins =
      BeginsWith(list, slot.record.text, static_cast<std::size_t>(slot.record.length));
  return begins ? std::optional(slot) : std::nullopt;
}

const Tree* FormerEntries::Subtree(TalStringViewT<WideChar> name) const noexcept {
  return static_cast<const Tree*>(TreeEntries::Find(m_list, name, EntryKind::Tree).Present());
}

}  // namespace TalVcs
