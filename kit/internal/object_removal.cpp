#include <kit/internal/object_removal.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

// Records are written in pieces of this size.
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;
constexpr std::uint64_t kMostPackedFileBytes = std::uint64_t{1} << 20;

Result<EncodedHeader> HeaderOf(const ScannedRecord& record) {
  return ReadEncodedHeader(std::as_bytes(std::span(record.Encoded())));
}

}  // namespace

Result<RemovedObjects> ObjectRemoval::Run(const std::set<ObjectKey>& kept) {
  Status status = Survey(kept);
  if (status) ChoosePacks(kept);
  const bool changes = NeedsNewPacks() || m_removed.count > 0;
  if (status && NeedsNewPacks()) status = WriteNewPacks(kept);
  if (status && changes) status = SwitchState();
  if (status) status = Finish();
  if (status) status = RemoveRest();
  if (status) return m_removed;
  for (const auto& [number, size] : m_newPacks) {
    if (!m_objects.m_state.Get().packs.contains(number)) m_objects.m_packs.Files().Remove(number);
  }
  Error failure = std::move(status).error();
  failure.unchanged = "the branches and what they need are as they were";
  return failure;
}

/// Looks at all objects.
Status ObjectRemoval::Survey(const std::set<ObjectKey>& kept) {
  const Result<bool> begun = m_objects.BeginWriting();
  if (!begun) return begun.error();
  Status status = m_objects.m_packs.Visit([&](const ScannedRecord& record, const PackPlace& place) {
    TakeRecord(record, place, kept);
  });
  if (!status) return status;
  return m_objects.m_files.Visit([&](const ObjectKey& key, bool complete, const auto& path) {
    TakeFile(key, complete, path, kept);
  });
}

void ObjectRemoval::TakeRecord(const ScannedRecord& record, const PackPlace& place,
                               const std::set<ObjectKey>& kept) {
  const bool is_kept = kept.contains(record.key);
  if (!is_kept) m_rewritten.insert(place.pack);
  const auto [at, is_new] = m_places.emplace(record.key, place);
  if (!is_new && record.isWhole) {
    // The newest whole record is the one that readers find.
    m_rewritten.insert(at->second.pack);
    at->second = place;
  }
  if (!is_new && !is_kept) return;
  const Result<EncodedHeader> header = HeaderOf(record);
  if (!is_kept) {
    ++m_removed.count;
    m_removed.sizeBytes += header ? header->sizeBytes : 0;
  } else if (header && header->encoding == ObjectEncoding::Difference) {
    m_differences.push_back({place.pack, *KeyOf(header->base)});
  }
}

void ObjectRemoval::TakeFile(const ObjectKey& key, bool complete, const Path& path,
                             const std::set<ObjectKey>& kept) {
  const bool is_packed = m_places.contains(key);
  if (!complete || is_packed || !m_objects.MayHaveFile(key)) {
    m_otherFiles.push_back(path);
    return;
  }
  const Result<std::optional<std::uint64_t>> size = m_objects.m_files.SizeOf(key);
  if (!kept.contains(key)) {
    m_unusedFiles.insert(key);
    ++m_removed.count;
    m_removed.sizeBytes += size ? size->value_or(0) : 0;
  } else if (size && size->value_or(kMostPackedFileBytes + 1) <= kMostPackedFileBytes) {
    m_filesToPack.push_back(key);
    m_otherFiles.push_back(path);
  }
}

/// Chooses the packs that are written anew: those with objects to remove, those with differences
/// from such objects, and small ones, of which one alone may stay.
void ObjectRemoval::ChoosePacks(const std::set<ObjectKey>& kept) {
  for (const Difference& difference : m_differences) {
    if (!kept.contains(difference.base)) m_rewritten.insert(difference.pack);
  }
  std::vector<std::uint32_t> small;
  for (const auto& [number, size] : m_objects.m_packs.GetPacks()) {
    if (size < PackedObjects::kFullPackBytes / 2) small.push_back(number);
  }
  if (small.size() > 1 || NeedsNewPacks()) m_rewritten.insert(small.begin(), small.end());
}

Status ObjectRemoval::WriteNewPacks(const std::set<ObjectKey>& kept) {
  const PackSizes& packs = m_objects.m_packs.GetPacks();
  m_number = packs.empty() ? 1 : packs.rbegin()->first + 1;
  for (const std::uint32_t number : m_rewritten) {
    if (Status status = CopyPack(number, kept); !status) return status;
  }
  for (const ObjectKey& key : m_filesToPack) {
    if (Status status = AddAnew(key, {}); !status) return status;
  }
  // A pack is made even if it is empty: a later pack must not get a number that readers know.
  Status status = EndPack();
  return status ? m_objects.m_packs.Files().SyncNames() : status;
}

Status ObjectRemoval::CopyPack(std::uint32_t number, const std::set<ObjectKey>& kept) {
  Status status;
  const Status visited =
      m_objects.m_packs.VisitPack(number, [&](const ScannedRecord& record, const PackPlace& place) {
        if (!status || !kept.contains(record.key) || m_places[record.key] != place) return;
        const Result<EncodedHeader> header = HeaderOf(record);
        const bool loses_base = header && header->encoding == ObjectEncoding::Difference &&
                                !kept.contains(*KeyOf(header->base));
        status = loses_base ? AddAnew(record.key, record.bytes) : Add(record.bytes);
      });
  return visited ? status : visited;
}

/// Adds an object in a form without a base, or `record` if it can't be read.
Status ObjectRemoval::AddAnew(const ObjectKey& key, std::string_view record) {
  const Result<Buffer> packed = m_objects.Read(key);
  if (!packed && (record.empty() || packed.error().code != ErrorCode::Damaged)) {
    return packed.error();
  }
  if (!packed) return Add(record);
  const std::vector<std::byte> encoded = m_objects.Encode({IdOf(key), *packed, Id()});
  if (encoded.empty()) {
    const ObjectFiles::KeyedObject file(key, *packed);
    return m_objects.m_files.Write({&file, 1});
  }
  std::string anew;
  AppendPackRecord(anew, key, {reinterpret_cast<const char*>(encoded.data()), encoded.size()});
  return Add(anew);
}

Status ObjectRemoval::Add(std::string_view record) {
  m_bytes += record;
  if (m_bytes.size() < kPieceBytes) return {};
  PackFiles& files = m_objects.m_packs.Files();
  const auto pack = m_newPacks.find(m_number);
  if (pack == m_newPacks.end()) {
    m_bytes.insert(0, kPackTitle);
    if (Status status = files.Create(m_number, m_bytes); !status) return status;
  } else if (Status status = files.Append(m_number, pack->second, m_bytes); !status) {
    return status;
  }
  m_newPacks[m_number] += m_bytes.size();
  m_bytes.clear();
  return m_newPacks[m_number] < PackedObjects::kFullPackBytes ? Status() : EndPack();
}

Status ObjectRemoval::EndPack() {
  PackFiles& files = m_objects.m_packs.Files();
  const auto pack = m_newPacks.find(m_number);
  Status status;
  if (pack == m_newPacks.end()) {
    m_bytes.insert(0, kPackTitle);
    status = files.Create(m_number, m_bytes);
  } else if (!m_bytes.empty()) {
    status = files.Append(m_number, pack->second, m_bytes);
  }
  if (status) status = files.Sync(m_number);
  if (!status) return status;
  m_newPacks[m_number] += m_bytes.size();
  m_bytes.clear();
  ++m_number;
  return {};
}

Status ObjectRemoval::SwitchState() {
  JournalState next = m_objects.m_state.Get();
  if (m_removed.count > 0) ++next.removals;
  std::erase_if(next.packs, [this](const auto& pack) { return m_rewritten.contains(pack.first); });
  next.packs.insert(m_newPacks.begin(), m_newPacks.end());
  next.removedFiles = m_unusedFiles;
  return m_objects.m_state.Replace(next);
}

Status ObjectRemoval::Finish() {
  JournalState next = m_objects.m_state.Get();
  if (next.removedFiles.empty()) return {};
  for (const ObjectKey& key : next.removedFiles) {
    if (Status status = m_objects.m_files.RemoveFileOf(key); !status) return status;
  }
  if (Status status = m_objects.m_files.SyncNames(); !status) return status;
  next.removedFiles.clear();
  return m_objects.m_state.Replace(next);
}

Status ObjectRemoval::RemoveRest() {
  for (const Path& path : m_otherFiles) {
    if (Status status = m_objects.m_files.Remove(path); !status) return status;
  }
  m_objects.m_files.RemoveEmptyFolders();
  PackedObjects& packs = m_objects.m_packs;
  packs.Use(m_objects.m_state.Get().packs);
  const Result<std::vector<std::uint32_t>> numbers = packs.Files().List();
  if (!numbers) return numbers.error();
  for (const std::uint32_t number : *numbers) {
    if (!packs.GetPacks().contains(number)) packs.Files().Remove(number);
  }
  if (NeedsNewPacks()) packs.WriteWholeIndex();
  return {};
}

}  // namespace TalVcs::Kit
