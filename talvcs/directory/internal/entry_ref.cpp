#include <talvcs/directory/internal/entry_ref.h>
#include <talvcs/directory/internal/object_source.h>
#include <talvcs/directory/internal/tree_entries.h>

#include <algorithm>
#include <vector>

namespace TalVcs {

namespace {

Id IdOfText(TalStringViewT<char> text) { return Id(TalStringT<WideChar>(TalStringT<char>(text))); }

bool EqualText(TalStringViewT<WideChar> wide, TalStringViewT<char> ascii) noexcept {
  return wide.length == ascii.length &&
         std::equal(wide.text, wide.text + wide.length, ascii.text,
                    [](WideChar a, char b) { return a == static_cast<WideChar>(b); });
}

}  // namespace

const cow_ptr<Object> EntryRef::kNone;

// The link stays absent if the source throws.
void EntryRef::Read() const {
  const EntryKind kind = m_chunk->Kind(Index());
  m_chunk->SetChild(Index(), m_list->Source()->OpenEntry(kind, IdOfText(IdOfAbsent()), Place()));
}

ObjectSource::Place EntryRef::Place() const noexcept {
  return ObjectSource::PlaceBelow(m_list->GetPlace(), m_chunk->Name(Index()));
}

Id IdOf(const EntryRef& entry) {
  if (entry.IsAbsent()) return IdOfText(entry.IdOfAbsent());
  const Object* object = entry.Present();
  return object == nullptr ? Id() : object->GetId();
}

bool SameAbsentObject(EntryRef a, EntryRef b) {
  if (!a.HasObject() || !b.HasObject()) return a.HasObject() == b.HasObject();
  const Object* of_a = a.Present();
  const Object* of_b = b.Present();
  if (of_a != nullptr) return EqualText(of_a->GetId().View(), b.IdOfAbsent());
  if (of_b != nullptr) return EqualText(of_b->GetId().View(), a.IdOfAbsent());
  return a.IdOfAbsent() == b.IdOfAbsent();
}

void ExpectTrees(std::span<const EntryRef> entries) {
  ObjectSource* source = nullptr;
  std::vector<ObjectSource::ExpectedTree> expected;
  for (const EntryRef& entry : entries) {
    if (!entry.IsAbsent()) continue;
    ObjectSource* const own = entry.List()->Source();
    if (own != source && source != nullptr) {
      source->ExpectTrees(expected, false);
      expected.clear();
    }
    source = own;
    expected.push_back({IdOf(entry), entry.Place()});
  }
  if (source != nullptr) source->ExpectTrees(expected, false);
}

}  // namespace TalVcs
