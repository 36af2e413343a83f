#include <talvcs/directory/internal/entry_chunk.h>

#include <talvcs/format/id_text.h>
#include <talvcs/format/internal/record_start.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/foundation/internal/prefetch.h>
#include <talvcs/objects/tree.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The bytes of the records are in each chunk, so the entry list of a state is the run of its
// chunks' bytes and is hashed in place. The form of a record is in tree_format.h.

namespace TalVcs {

namespace {

constexpr int kIdDigits = static_cast<int>(kIdLength);

std::uint32_t CheckedEnd(std::uint64_t end) {
  if (end > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("entry name too long");
  }
  return static_cast<std::uint32_t>(end);
}

/// Memory to write records to before their size is known.
class RecordSpace {
 public:
  explicit RecordSpace(std::uint64_t mostBytes) {
    if (mostBytes > m_onStack.size()) m_onHeap.resize(CheckedEnd(mostBytes));
  }
  char* Get() noexcept { return m_onHeap.empty() ? m_onStack.data() : m_onHeap.data(); }

 private:
  std::array<char, 2048> m_onStack;
  std::vector<char> m_onHeap;
};

std::string_view BytesOf(TalStringViewT<char> text) noexcept {
  return {text.text, static_cast<std::size_t>(text.length)};
}

bool IsOfLibraryClass(EntryKind kind, const Object& object) noexcept {
  return kind == EntryKind::Blob ? TalUtils::IsExactly<Blob>(object)
                                 : TalUtils::IsExactly<Tree>(object);
}

/// Returns how the record of an object of a host's class begins, if that has another mode or type
/// than the library's own.
std::optional<std::string> OtherStartOf(EntryKind kind, const Object& object) {
  std::string start;
  for (const TalStringT<char>& word : {object.GetStoragePrefix(), object.GetHeader()}) {
    start += BytesOf(word);
    start += ' ';
  }
  if (start == (kind == EntryKind::Blob ? kBlobStart : kTreeStart)) return std::nullopt;
  return start;
}

char* PutText(TalStringViewT<char> text, char* out) noexcept {
  std::memcpy(out, text.text, static_cast<std::size_t>(text.length));
  return out + text.length;
}

/// What the records of a new chunk are made of, and how much room they take.
struct RecordPlan {
  static constexpr std::size_t kMost = EntryChunk::kMostSlots + 1;

  std::array<Id, kMost> ids;
  std::array<bool, kMost> recorded{};
  std::vector<std::string> other_starts;  // of the records whose bit is set below
  std::uint32_t with_other_start = 0;
  std::uint64_t units = 0;  // of all names
  std::uint64_t most_bytes = 0;
  bool hides_tree = false;
  bool whole_records = true;

  explicit RecordPlan(std::span<const EntryChunk::Slot> slots) {
    for (std::size_t index = 0; index < slots.size(); ++index) {
      const EntryChunk::Slot& slot = slots[index];
      units += static_cast<std::uint64_t>(slot.name.length);
      const bool hidden = index > 0 && SameName(slots[index - 1].name, slot.name);
      hides_tree = hides_tree || (hidden && slots[index - 1].HasObject() && *slot.child);
      recorded[index] = !hidden && slot.HasObject();
      whole_records = whole_records && recorded[index] && slot.name.Find(WideChar()) < 0;
      if (recorded[index]) Add(slot, index);
    }
  }

  /// Writes the records to `bytes` and the end of each to `ends`. Returns the end of the last one.
  char* Put(std::span<const EntryChunk::Slot> slots, char* bytes,
            std::array<std::uint32_t, kMost>& ends) const noexcept {
    char* end = bytes;
    auto other_start = other_starts.cbegin();
    for (std::size_t index = 0; index < slots.size(); ++index) {
      const EntryChunk::Slot& slot = slots[index];
      if (recorded[index]) {
        if (slot.record.length != 0) {
          end = PutText(slot.record, end);
        } else if ((with_other_start >> index & 1) != 0) {
          end = PutRecord(*other_start++, slot.name, ids[index].View(), end);
        } else {
          end = PutRecord(slot.kind, slot.name, ids[index].View(), end);
        }
      }
      ends[index] = static_cast<std::uint32_t>(end - bytes);
    }
    return end;
  }

 private:
  void Add(const EntryChunk::Slot& slot, std::size_t index) {
    if (slot.record.length != 0) {
      most_bytes += static_cast<std::uint64_t>(slot.record.length);
      whole_records = whole_records && BeginsAsUsual(slot.kind, BytesOf(slot.record));
      return;
    }
    if (!IsOfLibraryClass(slot.kind, **slot.child)) {
      if (auto start = OtherStartOf(slot.kind, **slot.child)) {
        most_bytes += start->size();
        other_starts.push_back(std::move(*start));
        with_other_start |= 1U << index;
        whole_records = false;
      }
    }
    ids[index] = (*slot.child)->GetId();
    most_bytes += MostRecordBytes(slot.name, ids[index].View());
  }
};

}  // namespace

EntryChunk::Ptr EntryChunk::Make(std::span<const Slot> slots, std::size_t room) {
  const RecordPlan plan(slots);
  RecordSpace space(plan.most_bytes);
  char* const bytes = space.Get();
  std::array<std::uint32_t, RecordPlan::kMost> record_ends;
  const char* const end = plan.Put(slots, bytes, record_ends);

  const auto record_bytes = static_cast<std::size_t>(end - bytes);
  const auto with_room = [&](std::uint64_t present) {
    return present + (present * room + slots.size() - 1) / slots.size();
  };
  const std::size_t capacity = slots.size() + room;
  const std::uint64_t records_offset =
      NamesOffset(capacity) + with_room(plan.units) * sizeof(WideChar);
  static_assert(alignof(EntryChunk) <= alignof(void*) &&
                alignof(cow_ptr<Object>) <= alignof(void*));
  std::byte* memory = nullptr;
  Buffer block = Buffer::Allocate(CheckedEnd(records_offset + with_room(record_bytes)), memory);
  std::memcpy(memory + records_offset, bytes, record_bytes);
  auto* chunk = ::new (memory) EntryChunk;
  chunk->m_memory = std::move(block);
  chunk->m_recordsOffset = static_cast<std::uint32_t>(records_offset);
  chunk->m_capacity = static_cast<std::uint8_t>(capacity);
  chunk->m_hidesTree = plan.hides_tree;
  chunk->m_hasWholeRecords = plan.whole_records;
  for (std::size_t index = 0; index < slots.size(); ++index) {
    chunk->PutEntry(slots[index], record_ends[index]);
  }
  return Ptr(chunk);
}

// Puts an entry after the present ones, up to the end of its record, whose bytes are there already.
void EntryChunk::PutEntry(const Slot& slot, std::uint32_t recordEnd) noexcept {
  const std::uint32_t name_start = m_count == 0 ? 0 : EndsOfEntries()[m_count - 1].name;
  const auto length = static_cast<std::uint32_t>(slot.name.length);
  std::construct_at(Children() + m_count, *slot.child);
  std::memcpy(Names() + name_start, slot.name.text, length * sizeof(WideChar));
  ::new (EndsOfEntries() + m_count) Ends{name_start + length, recordEnd};
  if (slot.kind == EntryKind::Tree) {
    m_treeBits |= 1U << m_count;
    ++m_treeCount;
  }
  m_recordBytes = recordEnd;
  ++m_count;
}

bool EntryChunk::TryAppend(const Slot& slot) {
  if (m_count == m_capacity) return false;
  const Object& object = **slot.child;
  if (!IsOfLibraryClass(slot.kind, object) && OtherStartOf(slot.kind, object)) return false;
  const std::size_t name_end =
      EndsOfEntries()[m_count - 1].name + static_cast<std::size_t>(slot.name.length);
  if (NamesOffset(m_capacity) + name_end * sizeof(WideChar) > m_recordsOffset) return false;
  const Id id = object.GetId();
  RecordSpace space(MostRecordBytes(slot.name, id.View()));
  const char* const end = PutRecord(slot.kind, slot.name, id.View(), space.Get());
  const auto size = static_cast<std::size_t>(end - space.Get());
  const std::size_t records_end = std::size_t{m_recordsOffset} + m_recordBytes;
  if (m_memory.GetSize() - records_end < size) return false;
  std::memcpy(static_cast<std::byte*>(static_cast<void*>(this)) + records_end, space.Get(), size);
  m_hasWholeRecords = m_hasWholeRecords && slot.name.Find(WideChar()) < 0;
  PutEntry(slot, static_cast<std::uint32_t>(m_recordBytes + size));
  return true;
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
