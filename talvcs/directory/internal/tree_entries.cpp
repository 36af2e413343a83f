#include <talvcs/directory/internal/tree_entries.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

// A directory is a list of chunks; an edit makes one chunk anew and a new list of pointers:
//
//   state 1   [ a b c ]  [ d e f ]  [ g h ]
//                 \          :          /
//   state 2   [ a b c ]  [ d E f ]  [ g h ]       the outer chunks are the same memory

namespace TalVcs {

namespace {

// An edit costs the bytes of one chunk and of the list of pointers, about 110 an entry and 8 a
// chunk, so the best size of chunks grows with the square root of the directory: 3 entries for a
// directory of a hundred, 9 for one of a thousand, 27 for ten thousand.
std::size_t MostSlots(std::size_t chunks) noexcept {
  if (chunks <= 32) return 4;
  return chunks <= 128 ? 8 : EntryChunk::kMostSlots;
}

template <class Chunks>
std::uint64_t BytesOfRecords(const Chunks& chunks) noexcept {
  std::uint64_t total = 0;
  for (const auto& chunk : chunks) total += chunk->Records().size();
  return total;
}

/// The slots of one chunk under change.
struct SlotPlan {
  std::array<EntryChunk::Slot, EntryChunk::kMostSlots + 1> slots;
  std::size_t count = 0;

  void Add(const EntryChunk::Slot& slot) noexcept { slots[count++] = slot; }
  void AddAll(const EntryChunk& chunk, std::size_t first, std::size_t last) noexcept {
    for (std::size_t index = first; index < last; ++index) Add(chunk.At(index));
  }
  std::span<const EntryChunk::Slot> Part(std::size_t first, std::size_t last) const noexcept {
    return std::span(slots).subspan(first, last - first);
  }
  /// Returns the place near `wanted` where a cut leaves entries of one name together.
  std::size_t CutNear(std::size_t wanted) const noexcept {
    if (!SameName(slots[wanted - 1].name, slots[wanted].name)) return wanted;
    return wanted > 1 ? wanted - 1 : wanted + 1;
  }
};

}  // namespace

TreeEntries::Ptr TreeEntries::New(std::size_t capacity, bool checkpoints) {
  static_assert(alignof(Checkpoint) <= alignof(EntryChunk*));
  if (capacity > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("too many entries");
  }
  const std::size_t more = checkpoints ? kCheckpoints * sizeof(Checkpoint) : 0;
  Ptr list(TalUtils::NewCountedBlock<TreeEntries>(capacity * sizeof(EntryChunk*) + more));
  list->m_capacity = static_cast<std::uint32_t>(capacity);
  list->m_hasRoomForCheckpoints = checkpoints;
  return list;
}

// The list of a subtree waits until the list above it is freed, so that nesting has no limit. The
// waiting lists form a chain in their own memory, so that nothing is allocated.
void TreeEntries::Free(TreeEntries* list) noexcept {
  thread_local TreeEntries** waiting = nullptr;
  const SourcePtr source(std::exchange(list->m_source, nullptr));
  if (waiting != nullptr) {
    list->m_next = std::exchange(*waiting, list);
    return;
  }
  waiting = &list;
  list->m_next = nullptr;
  while (list != nullptr) {
    TreeEntries* const dying = std::exchange(list, list->m_next);
    for (EntryChunk* chunk : dying->Chunks()) TalUtils::EndHold(chunk);
    TalUtils::FreeCountedBlock(dying);
  }
  waiting = nullptr;
}

std::size_t TreeEntries::FindChunk(TalStringViewT<WideChar> name) const noexcept {
  const auto chunks = Chunks();
  const auto after = std::upper_bound(chunks.begin(), chunks.end(), name,
                                      [](TalStringViewT<WideChar> wanted, const EntryChunk* c) {
                                        return CompareNames(wanted, c->Name(0)) < 0;
                                      });
  return after == chunks.begin() ? 0 : static_cast<std::size_t>(after - chunks.begin()) - 1;
}

EntryRef TreeEntries::Find(const TreeEntries* list, TalStringViewT<WideChar> name,
                           EntryKind kind) noexcept {
  if (list == nullptr) return {};
  const EntryChunk& chunk = list->ChunkFor(name);
  const std::size_t index = chunk.LowerBound(name, kind);
  if (index == chunk.Count() || chunk.Kind(index) != kind) return {};
  return SameName(chunk.Name(index), name) ? EntryRef(list, &chunk, index) : EntryRef();
}

void TreeEntries::SetSource(ObjectSource& source, ObjectSource::Place place) noexcept {
  m_source = SourcePtr::Share(&source).Disown();
  m_place = place;
  for (EntryChunk* chunk : Chunks()) chunk->SetHasSource();
}

void TreeEntries::ExpectAbsentSubtrees() const {
  std::vector<ObjectSource::ExpectedTree> expected;
  for (const EntryChunk* chunk : Chunks()) {
    if (chunk->TreeCount() == 0) continue;
    for (std::size_t index = 0; index < chunk->Count(); ++index) {
      if (chunk->Kind(index) != EntryKind::Tree || !chunk->IsAbsent(index)) continue;
      const EntryRef entry(this, chunk, index);
      expected.push_back({IdOf(entry), entry.Place()});
    }
  }
  if (!expected.empty()) m_source->ExpectTrees(expected, true);
}

void TreeEntries::CountChunk(const EntryChunk& chunk, bool added) noexcept {
  const auto change = [added](auto& total, auto part) {
    total = added ? total + part : total - part;
  };
  change(m_count, chunk.Count());
  change(m_treeCount, chunk.TreeCount());
  change(m_recordBytes, chunk.Records().size());
  change(m_hidingChunks, std::uint32_t{chunk.HidesTree()});
}

// Puts `chunks`, whose holds it takes over, in the place of `removed` chunks from `first` on. Only
// a list that follows another of its length and size has room for checkpoints, so that directories
// which grow, where they are of no use, don't pay for them.
void TreeEntries::Replace(Ptr& list, std::size_t first, std::size_t removed,
                          std::span<EntryChunk::Ptr> chunks) {
  TreeEntries* const old = list.get();
  const bool sole = old != nullptr && old->holders.IsSole();
  const std::size_t old_count = old == nullptr ? 0 : old->m_chunkCount;
  const std::size_t new_count = old_count - removed + chunks.size();
  std::span<EntryChunk* const> replaced;
  if (old != nullptr) replaced = old->Chunks().subspan(first, removed);
  const bool keeps_digest = new_count >= kFewestChunksForCheckpoints && new_count == old_count &&
                            BytesOfRecords(replaced) == BytesOfRecords(chunks);
  Ptr made;
  if (!sole || old->m_capacity < new_count) {
    made = New(sole ? new_count + new_count / 2 : new_count, keeps_digest);
  }
  TreeEntries* const target = made ? made.get() : old;
  // From here on nothing can fail.
  std::array<EntryChunk*, 2> gone{};
  EntryChunk** const to = target->ChunkArray();
  if (old != nullptr) {
    EntryChunk** const from = old->ChunkArray();
    std::copy(replaced.begin(), replaced.end(), gone.begin());
    if (target != old) {
      std::copy_n(from, first, to);
      target->m_count = old->m_count;
      target->m_treeCount = old->m_treeCount;
      target->m_hidingChunks = old->m_hidingChunks;
      target->m_recordBytes = old->m_recordBytes;
      target->m_source = old->m_source;
      target->m_place = old->m_place;
      if (!sole && target->m_source != nullptr) target->m_source->holders.Acquire();
    }
    std::memmove(to + first + chunks.size(), from + first + removed,
                 (old_count - first - removed) * sizeof(*to));
  }
  for (std::size_t index = 0; index < chunks.size(); ++index) {
    to[first + index] = chunks[index].Disown();
  }
  target->m_chunkCount = static_cast<std::uint32_t>(new_count);
  if (old != nullptr) target->TakeCheckpoints(*old, keeps_digest ? first : 0);
  for (EntryChunk* chunk : target->Chunks().subspan(first, chunks.size())) {
    target->CountChunk(*chunk, true);
    if (target->m_source != nullptr) chunk->SetHasSource();
  }
  for (std::size_t index = 0; index < removed; ++index) target->CountChunk(*gone[index], false);
  if (sole) {
    if (made) {
      // The new list has taken over all that the old one held.
      TalUtils::FreeCountedBlock(list.Disown());
      list = std::move(made);
    }
    for (std::size_t index = 0; index < removed; ++index) TalUtils::EndHold(gone[index]);
    return;
  }
  for (std::size_t index = 0; index < new_count; ++index) {
    if (index < first || index >= first + chunks.size()) to[index]->holders.Acquire();
  }
  list = std::move(made);
}

void TreeEntries::Set(Ptr& list, TalStringViewT<WideChar> name, EntryKind kind,
                      const cow_ptr<Object>& child) {
  // A subtree that becomes hidden loses its record, and with it the id by which it could be read.
  if (kind == EntryKind::Blob && list && list->m_source != nullptr) {
    Find(list.get(), name, EntryKind::Tree).Open();
  }
  SetSlot(list, {name, kind, &child, {}});
}

void TreeEntries::SetLike(Ptr& list, const EntryRef& entry) {
  const EntryChunk::Slot slot = entry.Slot();
  ObjectSource* const own = list ? list->m_source : nullptr;
  ObjectSource* const theirs = entry.List()->m_source;
  const bool becomes_hidden =
      slot.kind == EntryKind::Tree && Find(list.get(), slot.name, EntryKind::Blob);
  const bool can_stay_absent = (own == nullptr || own == theirs) && !becomes_hidden;
  if (!entry.IsAbsent() || !can_stay_absent) {
    Set(list, slot.name, slot.kind, entry.Open());
    return;
  }
  if (slot.kind == EntryKind::Blob) Find(list.get(), slot.name, EntryKind::Tree).Open();
  // Chunks that the list shares with others keep their links, since those may have no source.
  SetSlot(list, slot);
  if (own == nullptr) list->m_source = SourcePtr::Share(theirs).Disown();
}

void TreeEntries::SetSlot(Ptr& list, const EntryChunk::Slot& slot) {
  const auto& [name, kind, child, record] = slot;
  SlotPlan plan;
  std::array<EntryChunk::Ptr, 2> made;
  if (!list) {
    made[0] = EntryChunk::Make({&slot, 1});
    Replace(list, 0, 0, std::span(made).first(1));
    return;
  }
  if (list->AppendInPlace(slot)) return;
  const std::size_t at = list->FindChunk(name);
  const EntryChunk& chunk = *list->Chunks()[at];
  const std::size_t index = chunk.LowerBound(name, kind);
  const bool replaces =
      index < chunk.Count() && chunk.Kind(index) == kind && SameName(chunk.Name(index), name);
  const bool appends = at + 1 == list->m_chunkCount && index == chunk.Count();
  const std::size_t most = MostSlots(list->m_chunkCount);
  // Names that arrive in ascending order fill one chunk after the other. More of them may come as
  // long as no other tree shares the list.
  const bool grows = appends && list->holders.IsSole();
  if (appends && chunk.Count() >= most && !SameName(chunk.Name(index - 1), name)) {
    made[0] = EntryChunk::Make({&slot, 1}, grows ? most - 1 : 0);
    Replace(list, at + 1, 0, std::span(made).first(1));
    return;
  }
  plan.AddAll(chunk, 0, index);
  plan.Add(slot);
  plan.AddAll(chunk, replaces ? index + 1 : index, chunk.Count());
  if (plan.count <= most) {
    // A directory of few entries often stays so.
    const std::size_t room = grows ? std::min(plan.count, most - plan.count) : 0;
    made[0] = EntryChunk::Make(plan.Part(0, plan.count), room);
  } else {
    const std::size_t cut = plan.CutNear(appends ? plan.count - 1 : plan.count / 2);
    made[0] = EntryChunk::Make(plan.Part(0, cut));
    made[1] = EntryChunk::Make(plan.Part(cut, plan.count));
  }
  Replace(list, at, 1, std::span(made).first(made[1] ? 2 : 1));
}

// Appends an entry to the last chunk if this list alone holds it and it has room. A batch of edits
// makes most entries so: to make the chunk anew for each took a fifth of the time of an import.
bool TreeEntries::AppendInPlace(const EntryChunk::Slot& slot) {
  if (!holders.IsSole() || !*slot.child || slot.record.length != 0) return false;
  EntryChunk& last = *Chunks().back();
  if (!last.holders.IsSole() || CompareNames(last.Name(last.Count() - 1), slot.name) >= 0) {
    return false;
  }
  const std::size_t bytes_before = last.Records().size();
  if (!last.TryAppend(slot)) return false;
  ++m_count;
  m_treeCount += slot.kind == EntryKind::Tree ? 1 : 0;
  m_recordBytes += last.Records().size() - bytes_before;
  m_checkpointCount = 0;
  return true;
}

bool TreeEntries::Erase(Ptr& list, TalStringViewT<WideChar> name) {
  if (!list) return false;
  std::size_t at = list->FindChunk(name);
  const EntryChunk& chunk = *list->Chunks()[at];
  const std::size_t first = chunk.LowerBound(name, EntryKind::Blob);
  std::size_t last = first;
  while (last < chunk.Count() && SameName(chunk.Name(last), name)) ++last;
  if (first == last) return false;
  const std::size_t left = chunk.Count() - (last - first);
  if (left == 0 && list->m_chunkCount == 1) {
    list = Ptr();
    return true;
  }
  SlotPlan plan;
  std::size_t removed = 1;
  const EntryChunk* before = at == 0 ? nullptr : list->Chunks()[at - 1];
  const EntryChunk* after = at + 1 == list->m_chunkCount ? nullptr : list->Chunks()[at + 1];
  // A chunk that has become small joins a small neighbour, so that directories shrink again.
  const std::size_t few = MostSlots(list->m_chunkCount) / 2;
  const bool join_before = left != 0 && before != nullptr && left + before->Count() <= few;
  const bool join_after =
      left != 0 && !join_before && after != nullptr && left + after->Count() <= few;
  if (join_before) plan.AddAll(*before, 0, before->Count());
  plan.AddAll(chunk, 0, first);
  plan.AddAll(chunk, last, chunk.Count());
  if (join_after) plan.AddAll(*after, 0, after->Count());
  if (join_before || join_after) removed = 2;
  if (join_before) --at;
  EntryChunk::Ptr made;
  if (plan.count != 0) made = EntryChunk::Make(plan.Part(0, plan.count));
  Replace(list, at, removed, std::span(&made, made ? 1 : 0));
  return true;
}

void TreeEntriesBuilder::Append(const EntryChunk::Slot& slot) {
  m_pending.push_back({TalStringT<WideChar>(slot.name), slot.kind, *slot.child, slot.record});
  const std::size_t most = MostSlots(m_chunks.size());
  if (m_pending.size() > most) Flush(most);
}

void TreeEntriesBuilder::Append(EntryChunk& chunk) {
  Flush(m_pending.size());
  m_chunks.push_back(EntryChunk::Ptr::Share(&chunk));
}

// Makes a chunk of the first `count` entries, or of one fewer, so that two of one name stay
// together.
void TreeEntriesBuilder::Flush(std::size_t count) {
  if (count == 0) return;
  SlotPlan plan;
  for (const Pending& entry : m_pending) {
    plan.Add({entry.name, entry.kind, &entry.child, entry.record});
  }
  const std::size_t cut = count < plan.count ? plan.CutNear(count) : count;
  m_chunks.push_back(EntryChunk::Make(plan.Part(0, cut)));
  m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(cut));
}

TreeEntries::Ptr TreeEntriesBuilder::Finish(const TreeEntries* previous) {
  Flush(m_pending.size());
  if (m_chunks.empty()) return {};
  const bool keeps_digest = previous != nullptr &&
                            m_chunks.size() >= TreeEntries::kFewestChunksForCheckpoints &&
                            m_chunks.size() == previous->m_chunkCount &&
                            BytesOfRecords(m_chunks) == previous->m_recordBytes;
  TreeEntries::Ptr list = TreeEntries::New(m_chunks.size(), keeps_digest);
  list->m_chunkCount = static_cast<std::uint32_t>(m_chunks.size());
  EntryChunk** out = list->ChunkArray();
  for (EntryChunk::Ptr& chunk : m_chunks) {
    list->CountChunk(*chunk, true);
    *out++ = chunk.Disown();
  }
  if (keeps_digest) {
    const auto theirs = previous->Chunks();
    const auto differs = std::mismatch(theirs.begin(), theirs.end(), list->ChunkArray()).first;
    list->TakeCheckpoints(*previous, static_cast<std::size_t>(differs - theirs.begin()));
  }
  m_chunks.clear();
  return list;
}

}  // namespace TalVcs
