#include <kit/text.h>
#include <stores/sqlite/internal/checksum.h>
#include <stores/sqlite/internal/object_rows.h>
#include <stores/sqlite/internal/raw_document.h>
#include <talvcs/persistence/packed_object.h>

#include <algorithm>
#include <limits>
#include <set>
#include <string_view>

namespace TalVcs::Kit::Sqlite {
namespace {

using Kind = RawColumn::Kind;

// More than the numbers and the id of a row take, wherever SQLite cuts a record in two.
constexpr std::uint64_t kBeginning = 64;
// Long names of branches and values of a host.
constexpr std::uint64_t kMostEntryBytes = std::uint64_t{16} << 20;
// Records of one object, piece or branch that are tried, and choices of pieces. Free pages have old
// ones; a crafted file can have any number.
constexpr std::size_t kMostTried = 16;

std::span<const std::byte> BytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

std::string_view TextAt(std::string_view record, const RawColumn& column) {
  return record.substr(std::min(column.at, record.size()), column.size);
}

bool IsWhole(std::string_view record, const RawColumn& column) {
  return column.at <= record.size() && column.size <= record.size() - column.at;
}

std::optional<ObjectKey> KeyAt(std::string_view record, const RawColumn& column) {
  if (column.kind != Kind::Blob || !IsWhole(record, column)) return std::nullopt;
  return KeyOf(BytesOf(TextAt(record, column)));
}

/// Returns the columns of a row of the table of objects; nothing for another record.
std::optional<std::vector<RawColumn>> ColumnsOfObject(std::string_view record) {
  std::optional<std::vector<RawColumn>> columns = ReadRawColumns(record, 5);
  if (!columns) return std::nullopt;
  const std::vector<RawColumn>& all = *columns;
  const bool is_object = all[0].kind == Kind::Null && KeyAt(record, all[1]).has_value() &&
                         all[2].kind == Kind::Number && all[2].number >= 0 &&
                         all[3].kind == Kind::Number && all[3].number >= kCompressedRow &&
                         (all[4].kind == Kind::Blob || all[4].kind == Kind::Number);
  return is_object ? columns : std::nullopt;
}

}  // namespace

void RawDocument::TakePage(std::uint64_t page) {
  m_state = m_file.StateOf(page);
  m_file.Visit(page, [this](const RawFile::Cell& cell) {
    if (cell.isRow) {
      TakeRow(cell);
    } else {
      TakeEntry(cell);
    }
  });
}

void RawDocument::TakeRow(const RawFile::Cell& cell) {
  const std::optional<std::string> record = m_file.Read(cell, kBeginning);
  if (!record) return;
  const std::optional<std::vector<RawColumn>> columns = ColumnsOfObject(*record);
  if (!columns || !HasRoom(cell.localBytes)) return;
  Objects& objects = m_objects[*KeyAt(*record, (*columns)[1])];
  if (!Insert(objects.rows, {cell.place, m_state})) return;
  objects.number = cell.number;
  objects.state = m_state;
}

/// Returns whether it is the first row now.
bool RawDocument::Insert(Rows& rows, const Row& row) {
  const auto place = std::find_if(rows.begin(), rows.end(),
                                  [&row](const Row& other) { return other.state > row.state; });
  const bool is_first = place == rows.begin();
  rows.insert(place, row);
  if (rows.size() > kMostTried) rows.pop_back();
  return is_first;
}

void RawDocument::TakeEntry(const RawFile::Cell& cell) {
  const std::optional<std::string> start = m_file.Read(cell, kBeginning);
  if (!start || TakePiece(cell, *start)) return;
  // The others of an old page were removed or changed.
  if (m_state != PageState::Live || cell.sizeBytes > kMostEntryBytes) return;
  const std::optional<std::string> record = m_file.Read(cell, cell.sizeBytes);
  if (record && !TakeHead(*record) && !TakeValue(*record)) TakeMeta(*record);
}

bool RawDocument::TakePiece(const RawFile::Cell& cell, const std::string& record) {
  const std::optional<std::vector<RawColumn>> columns = ReadRawColumns(record, 3);
  if (!columns || (*columns)[0].kind != Kind::Number || (*columns)[1].kind != Kind::Number ||
      (*columns)[2].kind != Kind::Blob) {
    return false;
  }
  if (HasRoom(cell.localBytes))
    Insert(m_pieces[{(*columns)[0].number, (*columns)[1].number}], {cell.place, m_state});
  return true;
}

bool RawDocument::TakeHead(const std::string& record) {
  const std::optional<std::vector<RawColumn>> columns = ReadRawColumns(record, 2);
  if (!columns || (*columns)[0].kind != Kind::Text) return false;
  const std::optional<ObjectKey> key = KeyAt(record, (*columns)[1]);
  if (!key) return false;
  const std::string name(TextAt(record, (*columns)[0]));
  // A damaged name isn't UTF-8 as a rule.
  if (ToUtf8(ToWide(name)) != name || !HasRoom(record.size())) return true;
  std::vector<Id>& ids = m_heads[name];
  const Id id = IdOf(*key);
  const bool is_new = std::find(ids.begin(), ids.end(), id) == ids.end();
  if (is_new && ids.size() < kMostTried) ids.push_back(id);
  return true;
}

bool RawDocument::TakeValue(const std::string& record) {
  const std::optional<std::vector<RawColumn>> columns = ReadRawColumns(record, 3);
  if (!columns || (*columns)[0].kind != Kind::Text || (*columns)[1].kind != Kind::Blob ||
      (*columns)[2].kind != Kind::Number) {
    return false;
  }
  const std::string_view name = TextAt(record, (*columns)[0]);
  const std::string_view value = TextAt(record, (*columns)[1]);
  const auto sum = static_cast<std::uint64_t>((*columns)[2].number);
  if (sum == Checksum(name, BytesOf(value)) && HasRoom(record.size())) {
    m_values.try_emplace(std::string(name), value);
  }
  return true;
}

/// Returns whether all that was taken so far has room in the file. Records of a crafted one can
/// have the same bytes, and there can be any number of them.
bool RawDocument::HasRoom(std::uint64_t sizeBytes) {
  m_takenBytes += sizeBytes;
  return m_takenBytes <= m_file.SizeBytes();
}

bool RawDocument::TakeMeta(const std::string& record) {
  const std::optional<std::vector<RawColumn>> columns = ReadRawColumns(record, 2);
  if (!columns || (*columns)[0].kind != Kind::Text || (*columns)[1].kind != Kind::Number) {
    return false;
  }
  if (TextAt(record, (*columns)[0]) == "heads" && m_headSums.size() < kMostTried) {
    m_headSums.insert(static_cast<std::uint64_t>((*columns)[1].number));
  }
  return true;
}

std::vector<ObjectKey> RawDocument::Keys() const {
  std::vector<std::pair<std::int64_t, ObjectKey>> numbered;
  numbered.reserve(m_objects.size());
  for (const auto& [key, objects] : m_objects) numbered.emplace_back(objects.number, key);
  std::sort(numbered.begin(), numbered.end());
  std::vector<ObjectKey> keys;
  keys.reserve(numbered.size());
  for (const auto& [number, key] : numbered) keys.push_back(key);
  return keys;
}

std::optional<RawDocument::Found> RawDocument::Read(const ObjectKey& key) {
  Objects& objects = m_objects[key];
  const Id id = IdOf(key);
  const std::uint64_t links = m_file.LinksLeft();
  for (const Row& row : objects.rows) {
    for (std::size_t choice = 0; choice < kMostTried; ++choice) {
      std::size_t rest = choice;
      std::optional<Found> found = ReadAt(row.place, id, rest);
      // All choices were tried.
      if (rest != 0) break;
      if (!found) continue;
      m_file.SetLinksLeft(links);
      objects.isWhole = true;
      // Its differences are read with it as their base from now on.
      objects.choice = choice;
      objects.rows = Rows{row};
      NoteCommit(key, found->packed);
      return found;
    }
  }
  return std::nullopt;
}

std::optional<RawDocument::Found> RawDocument::ReadAt(const Place& place, const Id& id,
                                                      std::size_t& choice) {
  const std::optional<std::vector<std::byte>> encoded = EncodedAt(place, choice);
  if (!encoded) return std::nullopt;
  const Result<EncodedHeader> header = ReadEncodedHeader(*encoded);
  if (!header) return std::nullopt;
  const Result<Buffer> packed =
      m_encoded.Decode(id, *encoded, [this](const Id& base) { return ReadBase(base); });
  if (packed && Id(*packed) == id) return Found{*packed, header->base};
  // What is wrong must not be the base of others.
  m_encoded.Clear();
  return std::nullopt;
}

Result<std::vector<std::byte>> RawDocument::ReadBase(const Id& id) {
  const auto found = m_objects.find(KeyOf(id).value_or(ObjectKey()));
  if (found != m_objects.end() && found->second.isWhole) {
    std::size_t choice = found->second.choice;
    if (auto encoded = EncodedAt(found->second.rows.front().place, choice)) {
      return *std::move(encoded);
    }
  }
  Error missing;
  missing.code = ErrorCode::NotFound;
  return missing;
}

/// Returns the encoded form of the object in a row. `choice` says which pieces to take where there
/// are several, and becomes 0 unless it is beyond all choices.
std::optional<std::vector<std::byte>> RawDocument::EncodedAt(const Place& place,
                                                             std::size_t& choice) {
  const std::optional<RawFile::Cell> cell = m_file.Find(place);
  if (!cell) return std::nullopt;
  const std::optional<std::string> record = m_file.Read(*cell, cell->sizeBytes);
  if (!record) return std::nullopt;
  const std::optional<std::vector<RawColumn>> columns = ColumnsOfObject(*record);
  if (!columns) return std::nullopt;
  const RawColumn& data = columns->back();
  std::optional<std::string> bytes;
  if (data.kind == Kind::Number) {
    bytes = PiecesOf(cell->number, data.number, choice);
  } else if (choice == 0 && IsWhole(*record, data)) {
    bytes = std::string(TextAt(*record, data));
  }
  if (!bytes) return std::nullopt;
  const std::span<const std::byte> all = BytesOf(*bytes);
  if ((*columns)[3].number == kPlainRow) return EncodedFormOf(all);
  return std::vector<std::byte>(all.begin(), all.end());
}

std::optional<std::string> RawDocument::PiecesOf(std::int64_t number, std::int64_t count,
                                                 std::size_t& choice) {
  std::vector<Place> places;
  for (std::int64_t piece = 0; piece < count; ++piece) {
    const auto found = m_pieces.find({number, piece});
    if (found == m_pieces.end()) return std::nullopt;
    const Rows& rows = found->second;
    places.push_back(rows[choice % rows.size()].place);
    choice /= rows.size();
  }
  if (choice != 0) return std::nullopt;
  std::string bytes;
  for (const Place& place : places) {
    const std::optional<std::string> piece = PieceAt(place);
    // Only in a crafted file do pieces have bytes in common.
    if (!piece || bytes.size() + piece->size() > m_file.SizeBytes()) return std::nullopt;
    bytes += *piece;
  }
  return bytes;
}

std::optional<std::string> RawDocument::PieceAt(const Place& place) {
  const std::optional<RawFile::Cell> cell = m_file.Find(place);
  if (!cell) return std::nullopt;
  const std::optional<std::string> record = m_file.Read(*cell, cell->sizeBytes);
  if (!record) return std::nullopt;
  const std::optional<std::vector<RawColumn>> columns = ReadRawColumns(*record, 3);
  if (!columns || !IsWhole(*record, columns->back())) return std::nullopt;
  return std::string(TextAt(*record, columns->back()));
}

void RawDocument::NoteCommit(const ObjectKey& key, const Buffer& packed) {
  if (GetPackedType(packed) != ObjectType::Commit) return;
  m_commits.insert(key);
  VisitReferences(packed, {&m_parents, [](void* target, const PackedReference& reference) {
                             if (reference.type != ObjectType::Commit) return;
                             const std::optional<ObjectKey> parent = KeyOf(reference.id);
                             if (parent) static_cast<std::set<ObjectKey>*>(target)->insert(*parent);
                           }});
}

std::int64_t RawDocument::NumberOf(const Id& id) const {
  const ObjectKey key = KeyOf(id).value_or(ObjectKey());
  const auto found = m_objects.find(key);
  const bool is_commit = found != m_objects.end() && m_commits.contains(key);
  return is_commit ? found->second.number : std::numeric_limits<std::int64_t>::min();
}

std::vector<Head> RawDocument::ChooseHeads() {
  const auto is_older = [this](const Id& a, const Id& b) { return NumberOf(a) < NumberOf(b); };
  std::uint64_t sum = 0;
  for (const auto& [name, ids] : m_heads) {
    const Id& id = *std::max_element(ids.begin(), ids.end(), is_older);
    m_chosen.push_back({name, id});
    sum ^= ChecksumOfHead(name, id);
  }
  m_hasAllHeads = m_headSums.contains(sum);
  if (!m_hasAllHeads) {
    std::erase_if(m_chosen, [this](const Head& head) {
      return !m_commits.contains(KeyOf(head.id).value_or(ObjectKey()));
    });
  }
  return m_chosen;
}

std::vector<Id> RawDocument::Tips() const {
  std::set<ObjectKey> heads;
  for (const Head& head : m_chosen) heads.insert(*KeyOf(head.id));
  std::vector<Id> tips;
  for (const ObjectKey& commit : m_commits) {
    if (heads.contains(commit) || m_parents.contains(commit)) continue;
    if (m_hasAllHeads && m_objects.at(commit).state == PageState::Old) continue;
    tips.push_back(IdOf(commit));
  }
  std::stable_sort(tips.begin(), tips.end(),
                   [this](const Id& a, const Id& b) { return NumberOf(a) > NumberOf(b); });
  return tips;
}

}  // namespace TalVcs::Kit::Sqlite
