#include <kit/internal/little_endian.h>
#include <kit/internal/packed_objects.h>

#include <algorithm>
#include <utility>

// Where records are found:
//
//     packs    | 1 ........................ | 2 ............................ |
//     indexes  | a ............... | b ........... | c .. |
//     tail                                                | in memory ...... | m_end

namespace TalVcs::Kit {

namespace {

// As many records are read when a store is opened, half a millisecond of work.
constexpr std::size_t kMostTailRecords = 1024;
constexpr std::uint64_t kMostTailBytes = std::uint64_t{1} << 20;

// A small object comes with one read: seven of eight records of a history of sources are this
// short. A read of 4,096 bytes mostly touches two pages of the file, and a log took a tenth longer
// by it.
constexpr std::size_t kFirstRead = 1024;
constexpr std::size_t kBeginning = 64;

// Room for reads that is larger is given back by the next read.
constexpr std::size_t kKeptBytes = std::size_t{1} << 16;

// Records are appended in pieces of about this size.
constexpr std::size_t kPieceBytes = std::size_t{8} << 20;

}  // namespace

bool PackedObjects::Use(const PackSizes& packs) {
  if (packs == m_packs) return true;
  const bool only_added = std::all_of(m_packs.begin(), m_packs.end(), [&packs](const auto& pack) {
    return packs.contains(pack.first);
  });
  if (!only_added) {
    m_loaded = false;
    m_files.Close();
  }
  m_packs = packs;
  return only_added;
}

Result<std::optional<PackedObjects::Found>> PackedObjects::ReadBeginning(const ObjectKey& key) {
  return Find(key, kBeginning);
}

Result<std::optional<PackedObjects::Found>> PackedObjects::Find(const ObjectKey& key,
                                                                std::size_t most) {
  using Nothing = std::optional<Found>;
  if (m_packs.empty()) return Nothing();
  if (!m_loaded || m_unreadable) Load();
  Result<std::optional<Found>> found = LookUp(key, most);
  if (found && !*found && CatchUp()) found = LookUp(key, most);
  if (found && !*found && m_unreadable) return *m_unreadable;
  return found;
}

Result<std::optional<PackedObjects::Found>> PackedObjects::LookUp(const ObjectKey& key,
                                                                  std::size_t most) {
  const auto in_tail = m_tail.find(key);
  if (in_tail != m_tail.end()) return LookAt(key, in_tail->second, most);
  // A record that was written later replaces an earlier one of the same object.
  std::optional<Error> failure;
  std::vector<std::uint64_t> places;
  for (std::size_t index = m_indexes.GetCount(); index-- > 0;) {
    places.clear();
    if (!m_indexes.Find(index, PrefixOf(key), places)) {
      Load();
      return LookUp(key, most);
    }
    std::sort(places.rbegin(), places.rend());
    for (const std::uint64_t number : places) {
      const PackPlace place = PlaceFromNumber(number);
      if (!m_packs.contains(place.pack)) continue;
      Result<std::optional<Found>> found = LookAt(key, place, most);
      if (found && *found) return found;
      if (!found && !failure) failure = std::move(found).error();
    }
  }
  if (failure) return *failure;
  return std::optional<Found>();
}

/// Reads `size` bytes of a pack, fewer at its end. They are valid until the next read.
Result<std::string_view> PackedObjects::ReadBytes(const PackPlace& place, std::size_t size) {
  const Result<OpenedFile*> file = m_files.Open(place.pack);
  if (!file) return file.error();
  if (size > m_bytes.size() || m_bytes.size() > kKeptBytes) {
    m_bytes = std::string(std::max(size, kFirstRead), '\0');
  }
  std::size_t count = 0;
  const std::error_code error = (*file)->ReadAt(place.offset, m_bytes.data(), size, count);
  if (error) return m_files.Failure("cannot read", m_files.PathOf(place.pack), error);
  return std::string_view(m_bytes).substr(0, count);
}

/// Reads the record at `place`; nothing if it is of another object.
Result<std::optional<PackedObjects::Found>> PackedObjects::LookAt(const ObjectKey& key,
                                                                  const PackPlace& place,
                                                                  std::size_t most) {
  const bool wants_all = most >= kMostPackedBytes;
  Result<std::string_view> bytes = ReadBytes(place, std::min(kFirstRead, kPackHeadSize + most));
  if (!bytes) return std::move(bytes).error();
  const std::optional<PackHead> head = ReadPackHead(*bytes);
  const bool is_it = head && head->key == key;
  const auto found = [&](std::size_t size) {
    return std::optional(
        Found{place, head->encodedBytes, std::string(bytes->substr(kPackHeadSize, size))});
  };
  if (is_it && !wants_all) return found(std::min(head->encodedBytes, most));
  const std::size_t record = head ? head->RecordBytes() : 0;
  if (head && bytes->size() < record) bytes = ReadBytes(place, record);
  if (!bytes) return std::move(bytes).error();
  if (head && bytes->size() >= record && IsWholePackRecord(bytes->substr(0, record))) {
    if (!is_it) return std::optional<Found>();
    return found(head->encodedBytes);
  }
  return m_files.Damage(place.pack, "the record of object " + HexFromKey(key) + " is damaged");
}

// What memory doesn't suffice for is loaded by the next call.
void PackedObjects::Load() {
  m_loaded = false;
  m_tail.clear();
  m_tailBytes = 0;
  m_synced = PackPlace();
  m_indexes.Load(m_packs);
  m_end = m_indexes.GetEnd();
  ScanOn();
  m_tailAfterLoad = m_tail.size();
  m_loaded = true;
}

/// Reads the records from the end on, of which this object doesn't know yet.
void PackedObjects::ScanOn() {
  m_unreadable.reset();
  m_cutShort = false;
  for (auto pack = m_packs.lower_bound(m_end.pack); pack != m_packs.end(); ++pack) {
    const std::uint64_t from = pack->first == m_end.pack ? m_end.offset : 0;
    const Result<std::uint64_t> end = VisitFrom(
        pack->first, from,
        [this](const ScannedRecord& record, const PackPlace& place) { Take(record, place); });
    if (!end) {
      m_unreadable = end.error();
      continue;
    }
    m_end = {pack->first, *end};
    m_cutShort = *end < pack->second;
  }
  m_lastCheck.reset();
  if (!m_packs.contains(m_end.pack)) return;
  const Result<std::optional<std::uint32_t>> check = m_files.CheckBefore(m_end);
  if (check) m_lastCheck = *check;
}

void PackedObjects::Take(const ScannedRecord& record, const PackPlace& place) {
  m_tailBytes += record.bytes.size();
  if (record.isWhole) {
    m_tail.insert_or_assign(record.key, place);
  } else {
    m_tail.emplace(record.key, place);
  }
}

/// Visits the records of a pack from `from` on, and returns where the next one would begin.
Result<std::uint64_t> PackedObjects::VisitFrom(std::uint32_t number, std::uint64_t from,
                                               const Visitor& visit) {
  const Result<std::uint64_t> size = m_files.SizeOf(number);
  if (!size) return size.error();
  const Result<OpenedFile*> file = m_files.Open(number);
  if (!file) return file.error();
  const auto pack = m_packs.find(number);
  const std::uint64_t kept = pack == m_packs.end() ? 0 : pack->second;
  PackScanner scanner(**file, std::max<std::uint64_t>(from, kPackTitle.size()), *size, kept);
  while (const std::optional<ScannedRecord> record = scanner.Next()) {
    visit(*record, {number, record->position});
  }
  if (!scanner.Error()) return scanner.Position();
  return m_files.Failure("cannot read", m_files.PathOf(number), scanner.Error());
}

Status PackedObjects::VisitPack(std::uint32_t number, const Visitor& visit) {
  const Result<std::uint64_t> end = VisitFrom(number, 0, visit);
  return end ? Status() : Status(end.error());
}

Status PackedObjects::Visit(const Visitor& visit) {
  for (const auto& [number, kept] : m_packs) {
    if (Status status = VisitPack(number, visit); !status) return status;
  }
  return {};
}

/// Looks for records that were added meanwhile; true if the look-up has to be repeated.
bool PackedObjects::CatchUp() {
  if (m_packs.empty()) return false;
  const std::uint32_t newest = m_packs.rbegin()->first;
  if (m_end.pack == newest) {
    const Result<std::uint64_t> size = m_files.SizeOf(newest);
    if (size && *size == m_end.offset) return false;
    if (size && *size < m_end.offset && !m_cutShort) {
      Load();
      return true;
    }
  }
  const PackPlace before = m_end;
  m_loaded = false;
  ScanOn();
  m_loaded = true;
  // Others have written many records, and an index of them.
  if (m_tail.size() > 2 * std::max(m_tailAfterLoad, kMostTailRecords)) Load();
  return m_end != before;
}

/// Returns false if records that were found before are gone.
Result<bool> PackedObjects::EndIsKept() {
  if (!m_loaded || !m_lastCheck || !m_packs.contains(m_end.pack)) return true;
  const Result<std::optional<std::uint32_t>> check = m_files.CheckBefore(m_end);
  if (!check) return check.error();
  return *check == m_lastCheck;
}

Result<bool> PackedObjects::BeginWriting() {
  Result<bool> kept = EndIsKept();
  if (!kept) return kept;
  if (!m_loaded || m_unreadable || !*kept) {
    Load();
  } else {
    CatchUp();
  }
  if (m_unreadable) return *m_unreadable;
  return kept;
}

Status PackedObjects::Append(std::span<const Entry> entries) {
  const PackPlace before = m_end;
  std::string records;
  std::size_t first = 0;
  Status status;
  m_loaded = false;
  for (std::size_t index = 0; status && index < entries.size(); ++index) {
    AppendPackRecord(records, entries[index].key, entries[index].encoded);
    if (records.size() < kPieceBytes && index + 1 < entries.size()) continue;
    status = AppendPiece(records, entries.subspan(first, index + 1 - first));
    records.clear();
    first = index + 1;
  }
  if (status) status = Sync();
  m_loaded = status.ok();
  // What the medium may not have must not be found.
  if (!status && m_end.pack == before.pack) m_files.CutOff(before.pack, before.offset);
  return status;
}

Status PackedObjects::AppendPiece(std::string_view records, std::span<const Entry> entries) {
  const bool begins = m_packs.empty() || m_cutShort || m_end.offset >= kFullPackBytes;
  if (begins) {
    if (Status status = Sync(); !status) return status;
  }
  const PackPlace at = begins ? PackPlace{NextPack(), kPackTitle.size()} : m_end;
  Status status =
      begins ? BeginPack(at.pack, records) : m_files.Append(at.pack, at.offset, records);
  if (!status) return status;
  m_end = {at.pack, at.offset + records.size()};
  m_lastCheck =
      static_cast<std::uint32_t>(NumberOf(records.substr(records.size() - kPackCheckSize)));
  if (begins) m_packs[at.pack] = m_end.offset;
  m_tailBytes += records.size();
  std::uint64_t offset = at.offset;
  for (const Entry& entry : entries) {
    m_tail.insert_or_assign(entry.key, PackPlace{at.pack, offset});
    offset += PackHead{entry.key, entry.encoded.size()}.RecordBytes();
  }
  return {};
}

Status PackedObjects::BeginPack(std::uint32_t number, std::string_view records) {
  Status status = m_files.Create(number, std::string(kPackTitle) + std::string(records));
  if (!status) return status;
  status = m_files.Sync(number);
  if (status) status = m_files.SyncNames();
  if (!status) m_files.Remove(number);
  m_cutShort = false;
  return status;
}

Status PackedObjects::Sync() {
  if (m_packs.empty() || m_synced == m_end) return {};
  Status status = m_files.Sync(m_end.pack);
  if (status) m_synced = m_end;
  return status;
}

void PackedObjects::WriteIndexIfDue() {
  const bool due = m_tail.size() > kMostTailRecords || m_tailBytes > kMostTailBytes;
  if (!due || m_unreadable) return;
  std::vector<PackIndexEntry> entries;
  entries.reserve(m_tail.size());
  for (const auto& [key, place] : m_tail) {
    entries.push_back({PrefixOf(key), NumberFromPlace(place)});
  }
  const Result<std::optional<std::uint32_t>> check = m_files.CheckBefore(m_end);
  if (!check || !*check || !m_indexes.Add(m_end, **check, std::move(entries))) return;
  m_tail.clear();
  m_tailBytes = 0;
  m_tailAfterLoad = 0;
}

void PackedObjects::WriteWholeIndex() {
  Load();
  std::vector<PackIndexEntry> entries;
  const Status status = Visit([&entries](const ScannedRecord& record, const PackPlace& place) {
    entries.push_back({PrefixOf(record.key), NumberFromPlace(place)});
  });
  if (!status || m_unreadable || !m_lastCheck) return;
  if (m_indexes.Replace(m_end, *m_lastCheck, std::move(entries))) Load();
}

}  // namespace TalVcs::Kit
