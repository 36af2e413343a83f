#include <stores/zip/internal/document.h>
#include <stores/zip/internal/zip_error.h>

#include <algorithm>
#include <iterator>

namespace TalVcs::Kit::Zip {
namespace {

std::string_view TextOf(const Digits& digits) { return {digits.data(), digits.size()}; }

Status CheckIds(std::span<const StoredObject> objects) {
  const auto bad = std::find_if(objects.begin(), objects.end(),
                                [](const StoredObject& object) { return !IsObjectId(object.id); });
  return bad == objects.end() ? Status() : Status(NotAnObjectId(bad->id));
}

/// Refuses what couldn't be read again.
Status CheckSize(const DocumentFile& file, std::uint64_t sizeBytes) {
  if (sizeBytes <= file.Options().mostObjectBytes) return {};
  return MakeError(ErrorCode::Unsupported, Task::Save, file.Name(),
                   "an object or value is larger than the options allow");
}

Status CheckSizes(const DocumentFile& file, std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (Status status = CheckSize(file, object.packed.GetSize()); !status) return status;
  }
  return {};
}

}  // namespace

bool Document::Has(std::string_view digits) const noexcept {
  return m_pending.Has(digits) || m_file->Current().Find(digits) != nullptr;
}

std::optional<std::uint64_t> Document::SizeOf(const Digits& digits) const noexcept {
  const Archive& archive = m_file->Current();
  if (const Archive::ObjectPlace* place = archive.Find(TextOf(digits))) {
    return archive.SizeOf(*place);
  }
  return m_pending.SizeOf(TextOf(digits));
}

void Document::RelyOnObjects() {
  if (m_isStale) m_reliedOn.clear();
  m_isStale = false;
}

/// Fails if anything is gone that the save relies on.
Status Document::CheckObjects() {
  m_isStale =
      m_isStale || !std::all_of(m_reliedOn.begin(), m_reliedOn.end(),
                                [this](const Digits& digits) { return Has(TextOf(digits)); });
  return m_isStale ? Status(ObjectsWereRemoved()) : Status();
}

Result<std::vector<Id>> Document::Missing(std::span<const Id> ids) {
  if (Status status = m_file->Refresh(); !status) return std::move(status).error();
  RelyOnObjects();
  std::vector<Id> missing;
  for (const Id& id : ids) {
    const std::optional<Digits> digits = DigitsOf(id);
    if (digits && Has(TextOf(*digits))) {
      m_reliedOn.push_back(*digits);
    } else {
      missing.push_back(id);
    }
  }
  return missing;
}

Result<Buffer> Document::ReadOne(const Id& id) {
  const std::optional<Digits> digits = DigitsOf(id);
  if (!digits) return NoSuchObject(id);
  if (std::optional<Result<Buffer>> pending = m_pending.Read(TextOf(*digits))) {
    return *std::move(pending);
  }
  const Archive::ObjectPlace* place = m_file->Current().Find(TextOf(*digits));
  if (place == nullptr) {
    // Another program may have written it.
    if (Status status = m_file->Refresh(); !status) return std::move(status).error();
    place = m_file->Current().Find(TextOf(*digits));
  }
  return place == nullptr ? NoSuchObject(id) : m_file->Current().Read(*place);
}

Status Document::Read(std::span<const Id> ids, const ReadSink& sink) {
  for (const Id& id : ids) sink(id, ReadOne(id));
  return {};
}

Result<std::vector<std::optional<std::uint64_t>>> Document::Sizes(std::span<const Id> ids) {
  if (Status status = m_file->Refresh(); !status) return std::move(status).error();
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const std::optional<Digits> digits = DigitsOf(id);
    sizes.push_back(digits ? SizeOf(*digits) : std::nullopt);
  }
  return sizes;
}

Status Document::Write(std::span<const StoredObject> objects) {
  if (Status status = m_file->CheckOptions(); !status) return status;
  if (Status status = CheckIds(objects); !status) return status;
  if (Status status = CheckSizes(*m_file, objects); !status) return status;
  RelyOnObjects();
  for (const StoredObject& object : objects) {
    const Digits digits = *DigitsOf(object.id);
    m_reliedOn.push_back(digits);
    if (Has(TextOf(digits))) continue;
    if (Status status = m_pending.Add(digits, object.packed, *m_file); !status) return status;
  }
  return {};
}

Result<std::vector<Head>> Document::Heads() {
  if (Status status = m_file->Refresh(); !status) return std::move(status).error();
  const Result<const DocumentState*> state = m_file->State();
  if (!state) return state.error();
  return ListHeads((*state)->heads);
}

Status Document::Change(const std::function<Result<bool>(DocumentState& state)>& change) {
  const Result<File> locked = m_file->Lock();
  if (!locked) return locked.error();
  const Result<const DocumentState*> present = m_file->State();
  if (!present) return present.error();
  DocumentState state = **present;
  const Result<bool> is_changed = change(state);
  if (!is_changed) return is_changed.error();
  if (!*is_changed && m_pending.IsEmpty()) return {};
  return WriteArchive(*locked, state, Places({}));
}

Status Document::MoveHeads(std::span<const HeadMove> moves) {
  Status status = Change([&](DocumentState& state) -> Result<bool> {
    Status checked = CheckMoves(state.heads, moves);
    if (checked) checked = CheckObjects();
    if (!checked) return std::move(checked).error();
    const HeadTable before = state.heads;
    ApplyMoves(state.heads, moves);
    return state.heads != before;
  });
  if (status) m_reliedOn.clear();
  return status;
}

Status Document::SetValue(std::string_view name, std::optional<std::string_view> value) {
  if (Status status = m_file->CheckOptions(); !status) return status;
  if (Status status = CheckSize(*m_file, value ? value->size() : 0); !status) return status;
  return Change([&](DocumentState& state) -> Result<bool> {
    const auto found = state.values.find(name);
    if (found == state.values.end() ? !value : value == found->second) return false;
    if (value) {
      state.values.insert_or_assign(std::string(name), std::string(*value));
    } else {
      state.values.erase(found);
    }
    return true;
  });
}

Status Document::WritePending() {
  if (m_pending.IsEmpty()) return {};
  return Change([](DocumentState& /*state*/) -> Result<bool> { return false; });
}

Result<std::optional<std::string>> Document::Value(std::string_view name) {
  if (Status status = m_file->Refresh(); !status) return std::move(status).error();
  const Result<const DocumentState*> state = m_file->State();
  if (!state) return state.error();
  const auto found = (*state)->values.find(name);
  if (found == (*state)->values.end()) return std::optional<std::string>();
  return std::optional(found->second);
}

Status Document::List(const IdSink& sink) {
  if (Status status = m_file->Refresh(); !status) return status;
  std::vector<Id> ids;
  for (const Place& place : Places({})) ids.push_back(IdOf(place.digits));
  if (!ids.empty()) sink(ids);
  return {};
}

/// Returns all objects, sorted by their digits: those of `replacements` in place of others, and
/// what the file has in place of what was written since.
std::vector<Document::Place> Document::Places(const ObjectMap& replacements) const {
  std::vector<Place> places;
  const auto add_all = [&places](const ObjectMap& objects) {
    for (const auto& [digits, bytes] : objects) places.push_back({digits, &bytes, nullptr, {}});
  };
  const auto add_archive = [&places](const Archive& archive) {
    for (const Archive::ObjectPlace& entry : archive.Objects()) {
      places.push_back({entry.digits, nullptr, &archive, entry});
    }
  };
  add_all(replacements);
  add_archive(m_file->Current());
  for (const std::unique_ptr<Archive>& archive : m_pending.Archives()) add_archive(*archive);
  add_all(m_pending.InMemory());
  std::stable_sort(places.begin(), places.end(),
                   [](const Place& a, const Place& b) { return a.digits < b.digits; });
  const auto end = std::unique(places.begin(), places.end(),
                               [](const Place& a, const Place& b) { return a.digits == b.digits; });
  places.erase(end, places.end());
  return places;
}

std::uint64_t Document::SizeOf(const Place& place) noexcept {
  return place.bytes != nullptr ? place.bytes->GetSize() : place.archive->SizeOf(place.entry);
}

/// Replaces the file by an archive of that state and those objects; then nothing is pending.
Status Document::WriteArchive(const File& locked, const DocumentState& state,
                              const std::vector<Place>& places) {
  const auto fill = [&](ArchiveWriter& writer) {
    std::map<std::string, std::string> branches;
    for (const auto& [name, id] : state.heads) {
      branches.emplace(BranchEntry(name), ToUtf8(id.View()) + '\n');
    }
    std::map<std::string, std::string_view> values;
    for (const auto& [name, value] : state.values) values.emplace(ValueEntry(name), value);
    Status status = writer.Add(std::string(kReadme), ReadmeOf(state));
    for (auto at = branches.begin(); status && at != branches.end(); ++at) {
      status = writer.Add(at->first, at->second);
    }
    for (auto at = places.begin(); status && at != places.end(); ++at) {
      status = at->bytes != nullptr ? writer.Add(ObjectEntry(at->digits, *at->bytes), *at->bytes)
                                    : writer.AddCopy(*at->archive, at->entry.entry);
    }
    for (auto at = values.begin(); status && at != values.end(); ++at) {
      status = writer.Add(at->first, at->second);
    }
    return status;
  };
  Status status = m_file->Replace(locked, fill);
  if (status || status.error().code == ErrorCode::Unknown) m_pending.Clear();
  return status;
}

Result<RemovedObjects> Document::RemoveUnmarked(const MarkObjects& mark) {
  const Result<File> locked = m_file->Lock();
  if (!locked) return locked.error();
  const Result<const DocumentState*> present = m_file->State();
  if (!present) return present.error();
  const DocumentState state = **present;
  const Result<std::vector<Id>> marked = mark(ListHeads(state.heads));
  if (!marked) return marked.error();
  std::vector<Digits> kept;
  kept.reserve(marked->size());
  for (const Id& id : *marked) {
    if (const std::optional<Digits> digits = DigitsOf(id)) kept.push_back(*digits);
  }
  std::sort(kept.begin(), kept.end());
  RemovedObjects removed;
  std::vector<Place> places = Places({});
  std::erase_if(places, [&](const Place& place) {
    Digits digits;
    std::copy(place.digits.begin(), place.digits.end(), digits.begin());
    if (std::binary_search(kept.begin(), kept.end(), digits)) return false;
    ++removed.count;
    removed.sizeBytes += SizeOf(place);
    return true;
  });
  if (removed.count == 0 && m_pending.IsEmpty()) return removed;
  if (Status status = WriteArchive(*locked, state, places); !status) {
    return std::move(status).error();
  }
  return removed;
}

Status Document::Replace(std::span<const StoredObject> objects) {
  if (Status status = m_file->CheckOptions(); !status) return status;
  if (Status status = CheckIds(objects); !status) return status;
  if (Status status = CheckSizes(*m_file, objects); !status) return status;
  ObjectMap replacements;
  for (const StoredObject& object : objects) {
    replacements.insert_or_assign(std::string(TextOf(*DigitsOf(object.id))), object.packed);
  }
  if (replacements.empty()) return {};
  const Result<File> locked = m_file->Lock();
  if (!locked) return locked.error();
  const Result<const DocumentState*> state = m_file->State();
  if (!state) return state.error();
  return WriteArchive(*locked, DocumentState(**state), Places(replacements));
}

}  // namespace TalVcs::Kit::Zip
