#include <kit/internal/journal.h>
#include <kit/internal/little_endian.h>
#include <kit/internal/store_state.h>
#include <talvcs/foundation/helpers.h>

#include <optional>
#include <utility>

// The layout of the file, as docs/formats.md describes it; numbers are little-endian:
//
//     journal := "TalVcs store 2" LF  "requires" (SP feature)* LF  record+
//     record  := "\nREC" size link payload digest
//     size    := 4 bytes, the bytes of payload
//     link    := 8 bytes, the first ones of the digest of the record before; zeros in the first
//     payload := change*
//     change  := "h" text id | "d" text | "v" text text | "x" text | "r" 8 bytes
//              | "p" 4 bytes 8 bytes | "t" id
//     text    := size bytes; size: 4 bytes
//     digest  := 32 bytes, the SHA-256 of all before it in the record

namespace TalVcs::Kit {

namespace {

constexpr std::string_view kTitle = "TalVcs store ";
constexpr std::string_view kVersion = "TalVcs store 2\n";
constexpr std::string_view kRequires = "requires";
constexpr std::string_view kRequiresPacks = "requires packs";
constexpr std::string_view kMark = "\nREC";
constexpr std::size_t kLinkSize = 8;
constexpr std::size_t kHeadSize = kMark.size() + 4 + kLinkSize;
constexpr std::size_t kFrameSize = kHeadSize + Journal::kDigestSize;

// A checkpoint is due when what follows the last one takes this many times its size, and more than
// this many bytes, so that few moves of a few branches cost a single append each.
constexpr std::uint64_t kGrowth = 3;
constexpr std::uint64_t kLeastGrowth = 16384;

// Two million branches. A journal ends at about five times as much.
constexpr std::uint64_t kMostPayloadBytes = std::uint64_t{256} << 20;

std::string DigestOf(std::string_view bytes) {
  const ObjectKey digest =
      *KeyFromHex(ToUtf8(Helpers::ComputeEncodedSHA256Hash(bytes.data(), bytes.size())));
  return std::string(digest.begin(), digest.end());
}

/// Returns the size of the record at the start of `bytes`, or nothing if no whole one is there.
std::optional<std::size_t> MeasureRecord(std::string_view bytes) {
  if (bytes.size() < kFrameSize || !bytes.starts_with(kMark)) return std::nullopt;
  const std::uint64_t payload = NumberOf(bytes.substr(kMark.size(), 4));
  if (payload > bytes.size() - kFrameSize) return std::nullopt;
  const std::size_t size = static_cast<std::size_t>(payload) + kFrameSize;
  const std::size_t digested = size - Journal::kDigestSize;
  if (bytes.substr(digested, Journal::kDigestSize) != DigestOf(bytes.substr(0, digested))) {
    return std::nullopt;
  }
  return size;
}

/// True if a whole record stands anywhere in `bytes`.
bool HoldsRecord(std::string_view bytes) {
  for (std::size_t at = bytes.find(kMark); at != std::string_view::npos;
       at = bytes.find(kMark, at + 1)) {
    if (MeasureRecord(bytes.substr(at))) return true;
  }
  return false;
}

std::string MakeFrame(std::string_view link, std::string_view payload) {
  std::string record(kMark);
  PutNumber(record, payload.size(), 4);
  record += link;
  record += payload;
  return record + DigestOf(record);
}

/// Takes pieces from the start of a payload; after a mismatch it takes nothing more.
class Payload {
 public:
  explicit Payload(std::string_view bytes) noexcept : m_rest(bytes) {}

  bool IsGood() const noexcept { return m_good; }
  bool IsAtEnd() const noexcept { return m_rest.empty(); }

  std::string_view Take(std::uint64_t size) {
    m_good = m_good && size <= m_rest.size();
    const std::string_view taken = m_rest.substr(0, m_good ? static_cast<std::size_t>(size) : 0);
    m_rest.remove_prefix(taken.size());
    return taken;
  }
  std::uint64_t TakeNumber(int count) { return NumberOf(Take(static_cast<std::uint64_t>(count))); }
  std::string TakeText() { return std::string(Take(TakeNumber(4))); }
  ObjectKey TakeKey() {
    ObjectKey key{};
    const std::string_view bytes = Take(key.size());
    for (std::size_t index = 0; index < bytes.size(); ++index) {
      key[index] = static_cast<std::uint8_t>(bytes[index]);
    }
    return key;
  }
  Id TakeId() { return IdOf(TakeKey()); }

 private:
  std::string_view m_rest;
  bool m_good = true;
};

}  // namespace

void JournalChanges::Put(char kind, std::string_view name) {
  m_payload.push_back(kind);
  PutNumber(m_payload, name.size(), 4);
  m_payload += name;
}

void JournalChanges::SetHead(std::string_view name, const Id& id) {
  Put('h', name);
  const std::optional<ObjectKey> key = KeyOf(id);
  if (key) m_payload.append(key->begin(), key->end());
}

void JournalChanges::RemoveHead(std::string_view name) { Put('d', name); }

void JournalChanges::Move(std::span<const HeadMove> moves) {
  for (const HeadMove& move : moves) {
    if (move.desired.View().IsEmpty()) {
      RemoveHead(move.name);
    } else {
      SetHead(move.name, move.desired);
    }
  }
}

void JournalChanges::SetValue(std::string_view name, std::string_view value) {
  Put('v', name);
  PutNumber(m_payload, value.size(), 4);
  m_payload += value;
}

void JournalChanges::RemoveValue(std::string_view name) { Put('x', name); }

void JournalChanges::SetRemovals(std::uint64_t removals) {
  m_payload.push_back('r');
  PutNumber(m_payload, removals, 8);
}

void JournalChanges::SetPack(std::uint32_t number, std::uint64_t sizeBytes) {
  m_payload.push_back('p');
  PutNumber(m_payload, number, 4);
  PutNumber(m_payload, sizeBytes, 8);
  m_needsPacks = true;
}

void JournalChanges::RemoveFile(const ObjectKey& key) {
  m_payload.push_back('t');
  m_payload.append(key.begin(), key.end());
  m_needsPacks = true;
}

bool Journal::Apply(std::string_view payload, JournalState& state) {
  Payload changes(payload);
  while (changes.IsGood() && !changes.IsAtEnd()) {
    const char kind = changes.Take(1).front();
    if (kind == 'r') {
      state.removals = changes.TakeNumber(8);
      continue;
    }
    if (kind == 'p') {
      const auto number = static_cast<std::uint32_t>(changes.TakeNumber(4));
      state.packs[number] = changes.TakeNumber(8);
      continue;
    }
    if (kind == 't') {
      state.removedFiles.insert(changes.TakeKey());
      continue;
    }
    std::string name = changes.TakeText();
    if (kind == 'h') {
      state.heads.insert_or_assign(std::move(name), changes.TakeId());
    } else if (kind == 'd') {
      state.heads.erase(name);
    } else if (kind == 'v') {
      state.values.insert_or_assign(std::move(name), changes.TakeText());
    } else if (kind == 'x') {
      state.values.erase(name);
    } else {
      return false;
    }
  }
  return changes.IsGood();
}

bool Journal::IsJournal(std::string_view bytes) {
  if (!bytes.starts_with(kTitle)) return false;
  const std::string_view line = bytes.substr(kTitle.size());
  const std::size_t end = line.find_first_not_of("0123456789");
  return end != std::string_view::npos && end > 0 && line[end] == '\n' &&
         line.substr(0, end) != "1";
}

JournalProblem Journal::Read(std::string_view bytes) {
  *this = Journal();
  if (!bytes.starts_with(kVersion)) {
    return IsJournal(bytes) ? JournalProblem::Unsupported : JournalProblem::Damaged;
  }
  const std::size_t line = kVersion.size();
  const std::size_t end = bytes.find('\n', line);
  if (end == std::string_view::npos || !bytes.substr(line).starts_with(kRequires)) {
    return JournalProblem::Damaged;
  }
  const std::string_view requires_line = bytes.substr(line, end - line);
  m_allowsPacks = requires_line == kRequiresPacks;
  if (!m_allowsPacks && requires_line != kRequires) return JournalProblem::Unsupported;
  m_size = end + 1;
  m_end.assign(kDigestSize, '\0');
  const JournalProblem problem = ReadRecords(bytes.substr(end + 1));
  return problem == JournalProblem::None && m_checkpointSize == 0 ? JournalProblem::Damaged
                                                                  : problem;
}

JournalProblem Journal::ReadOn(std::string_view bytes) { return ReadRecords(bytes); }

JournalProblem Journal::ReadRecords(std::string_view bytes) {
  m_hasTornTail = false;
  while (!bytes.empty()) {
    const std::optional<std::size_t> size = MeasureRecord(bytes);
    if (!size) {
      // Nothing is ever written after a record that isn't whole.
      if (HoldsRecord(bytes.substr(1))) return JournalProblem::Damaged;
      m_hasTornTail = true;
      return JournalProblem::None;
    }
    const std::string_view record = bytes.substr(0, *size);
    if (record.substr(kHeadSize - kLinkSize, kLinkSize) != m_end.substr(0, kLinkSize) ||
        !Apply(record.substr(kHeadSize, *size - kFrameSize), m_state)) {
      return JournalProblem::Damaged;
    }
    m_end = record.substr(*size - kDigestSize);
    m_size += *size;
    if (m_checkpointSize == 0) m_checkpointSize = m_size;
    bytes.remove_prefix(*size);
  }
  return JournalProblem::None;
}

bool Journal::HasOutgrownCheckpoint() const noexcept {
  const std::uint64_t grown = m_size - m_checkpointSize;
  return grown > kLeastGrowth && grown > kGrowth * m_checkpointSize;
}

std::string Journal::MakeRecord(const JournalChanges& changes) const {
  if (changes.m_needsPacks && !m_allowsPacks) return {};
  if (changes.m_payload.size() > kMostPayloadBytes) return {};
  return MakeFrame(std::string_view(m_end).substr(0, kLinkSize), changes.m_payload);
}

std::string Journal::Write(const JournalState& state) {
  JournalChanges changes;
  changes.SetRemovals(state.removals);
  for (const auto& [name, id] : state.heads) changes.SetHead(name, id);
  for (const auto& [name, value] : state.values) changes.SetValue(name, value);
  for (const auto& [number, size] : state.packs) changes.SetPack(number, size);
  for (const ObjectKey& key : state.removedFiles) changes.RemoveFile(key);
  if (changes.m_payload.size() > kMostPayloadBytes) return {};
  std::string bytes(kVersion);
  bytes += kRequiresPacks;
  bytes += '\n';
  return bytes + MakeFrame(std::string(kLinkSize, '\0'), changes.m_payload);
}

}  // namespace TalVcs::Kit
