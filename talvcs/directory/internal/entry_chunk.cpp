#include <talvcs/directory/internal/entry_chunk.h>

#include <talvcs/format/id_text.h>
#include <talvcs/foundation/internal/prefetch.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

// The bytes of the records are in each chunk, so the entry list of a state is the run of its
// chunks' bytes and is hashed in place. The form of a record is in tree_format.h.

namespace TalVcs {

namespace {

constexpr std::size_t kStackBytes = 2048;
constexpr int kIdDigits = static_cast<int>(kIdLength);

std::uint32_t CheckedEnd(std::uint64_t end) {
  if (end > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("entry name too long");
  }
  return static_cast<std::uint32_t>(end);
}

char* PutText(TalStringViewT<char> text, char* out) noexcept {
  std::memcpy(out, text.text, static_cast<std::size_t>(text.length));
  return out + text.length;
}

}  // namespace

EntryChunk::Ptr EntryChunk::Make(std::span<const Slot> slots) {
  std::array<Id, kMostSlots + 1> ids;
  std::array<bool, kMostSlots + 1> recorded{};
  std::uint64_t units = 0;
  std::uint64_t most_bytes = 0;
  bool hides_tree = false;
  bool whole_records = true;
  for (std::size_t index = 0; index < slots.size(); ++index) {
    const Slot& slot = slots[index];
    units += static_cast<std::uint64_t>(slot.name.length);
    const bool hidden = index > 0 && SameName(slots[index - 1].name, slot.name);
    hides_tree = hides_tree || (hidden && slots[index - 1].HasObject() && *slot.child);
    recorded[index] = !hidden && slot.HasObject();
    whole_records = whole_records && recorded[index] && slot.name.Find(WideChar()) < 0;
    if (!recorded[index]) continue;
    if (slot.record.length == 0) {
      ids[index] = (*slot.child)->GetId();
      most_bytes += MostRecordBytes(slot.name, ids[index].View());
    } else {
      most_bytes += static_cast<std::uint64_t>(slot.record.length);
    }
  }
  std::array<char, kStackBytes> on_stack;
  std::vector<char> on_heap(most_bytes > kStackBytes ? CheckedEnd(most_bytes) : 0);
  char* const bytes = on_heap.empty() ? on_stack.data() : on_heap.data();
  char* end = bytes;
  std::array<std::uint32_t, kMostSlots + 1> record_ends;
  for (std::size_t index = 0; index < slots.size(); ++index) {
    const Slot& slot = slots[index];
    if (recorded[index]) {
      end = slot.record.length == 0 ? PutRecord(slot.kind, slot.name, ids[index].View(), end)
                                    : PutText(slot.record, end);
    }
    record_ends[index] = static_cast<std::uint32_t>(end - bytes);
  }

  const std::uint64_t records_offset = sizeof(EntryChunk) +
                                       slots.size() * (sizeof(cow_ptr<Object>) + sizeof(Ends)) +
                                       units * sizeof(WideChar);
  const auto record_bytes = static_cast<std::size_t>(end - bytes);
  static_assert(alignof(EntryChunk) <= alignof(void*) &&
                alignof(cow_ptr<Object>) <= alignof(void*));
  std::byte* memory = nullptr;
  Buffer block = Buffer::Allocate(CheckedEnd(records_offset + record_bytes), memory);
  std::memcpy(memory + records_offset, bytes, record_bytes);
  auto* chunk = ::new (memory) EntryChunk;
  chunk->m_memory = std::move(block);
  chunk->m_recordsOffset = static_cast<std::uint32_t>(records_offset);
  chunk->m_recordBytes = static_cast<std::uint32_t>(record_bytes);
  chunk->m_count = static_cast<std::uint16_t>(slots.size());
  chunk->m_hidesTree = hides_tree;
  chunk->m_hasWholeRecords = whole_records;
  std::uint32_t name_end = 0;
  for (std::size_t index = 0; index < slots.size(); ++index) {
    const Slot& slot = slots[index];
    std::construct_at(chunk->Children() + index, *slot.child);
    const auto length = static_cast<std::uint32_t>(slot.name.length);
    std::memcpy(chunk->Names() + name_end, slot.name.text, length * sizeof(WideChar));
    name_end += length;
    ::new (chunk->EndsOfEntries() + index) Ends{name_end, record_ends[index]};
    if (slot.kind == EntryKind::Tree) {
      chunk->m_treeBits |= 1U << index;
      ++chunk->m_treeCount;
    }
  }
  return Ptr(chunk);
}

void EntryChunk::Free(EntryChunk* chunk) noexcept {
  const Buffer memory = std::move(chunk->m_memory);
  std::destroy_n(chunk->Children(), chunk->m_count);
  chunk->~EntryChunk();
}

void EntryChunk::AppendRecordsTo(Buffer& target) const {
  target.AppendRange(m_memory, m_recordsOffset, m_recordBytes);
}

void EntryChunk::PrefetchAhead(std::span<EntryChunk* const> chunks, std::size_t index) noexcept {
  constexpr std::size_t kStepsToChunk = 8;
  constexpr std::size_t kStepsToRecords = 4;
  constexpr std::size_t kMostBytes = 384;  // the processor goes on by itself
  if (index + kStepsToChunk < chunks.size()) TalUtils::Prefetch(chunks[index + kStepsToChunk]);
  if (index + kStepsToRecords < chunks.size()) {
    const auto records = chunks[index + kStepsToRecords]->Records();
    TalUtils::PrefetchRange(records.data(), std::min(records.size(), kMostBytes));
  }
}

TalStringViewT<char> EntryChunk::IdOfAbsent(std::size_t index) const noexcept {
  const TalStringViewT<char> record = At(index).record;
  return record.Mid(record.length - kIdDigits, kIdDigits);
}

EntryChunk::Slot EntryChunk::At(std::size_t index) const noexcept {
  const Ends* ends = EndsOfEntries();
  const std::uint32_t start = index == 0 ? 0 : ends[index - 1].record;
  const auto* bytes = static_cast<const char*>(static_cast<const void*>(Records().data()));
  const TalStringViewT<char> record{bytes + start, static_cast<int>(ends[index].record - start)};
  return {Name(index), Kind(index), &Child(index), record};
}

std::size_t EntryChunk::LowerBound(TalStringViewT<WideChar> name, EntryKind kind) const noexcept {
  std::size_t index = 0;
  for (; index < m_count; ++index) {
    const int order = CompareNames(Name(index), name);
    if (order > 0 || (order == 0 && Kind(index) >= kind)) break;
  }
  return index;
}

}  // namespace TalVcs
