// What the fast store keeps as values, if it keeps heads:
//
//     "cache/heads"         head*
//     "cache/value/" name   the value of that name
//     "cache/read/" name    empty: the value of that name was read, and is absent unless it is kept
//     head := id SP length SP name LF    length: decimal count of the bytes of the name

#include <kit/store/cache_store.h>
#include <kit/store/head_table.h>
#include <kit/store/internal/parent_of.h>

#include <charconv>
#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr char kHeadsKey[] = "cache/heads";
constexpr char kValuePrefix[] = "cache/value/";
constexpr char kReadPrefix[] = "cache/read/";
constexpr std::size_t kIdDigits = 64;

bool Fits(const Id& id, const Buffer& packed) { return Id(packed) == id; }

std::string TextOfHeads(const std::vector<Head>& heads) {
  std::string text;
  for (const Head& head : heads) {
    text +=
        ToUtf8(head.id.View()) + ' ' + std::to_string(head.name.size()) + ' ' + head.name + '\n';
  }
  return text;
}

/// Returns nothing for a text that `TextOfHeads` did not make.
std::optional<HeadTable> HeadsOfText(std::string_view text) {
  HeadTable heads;
  while (!text.empty()) {
    if (text.size() < kIdDigits + 1 || text[kIdDigits] != ' ') return std::nullopt;
    Id id(ToWide(text.substr(0, kIdDigits)));
    if (!IsObjectId(id)) return std::nullopt;
    text.remove_prefix(kIdDigits + 1);
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (text.size() < 2 || length > text.size() - 2 || text[0] != ' ' || text[length + 1] != '\n') {
      return std::nullopt;
    }
    heads.insert_or_assign(std::string(text.substr(1, length)), std::move(id));
    text.remove_prefix(length + 2);
  }
  return heads;
}

}  // namespace

CacheStore::CacheStore(std::shared_ptr<IObjectStore> fast, std::shared_ptr<IObjectStore> slow,
                       CacheOptions options) noexcept
    : m_fast(std::move(fast)), m_slow(std::move(slow)), m_options(options) {}
CacheStore::~CacheStore() = default;

/// Takes the outcome of a call of the slow store.
template <class Outcome>
Outcome CacheStore::Slow(Outcome outcome) {
  m_isOffline = !outcome && outcome.error().code == ErrorCode::Unavailable;
  return outcome;
}

/// Returns whether the fast store works. The first time, takes up what it holds.
bool CacheStore::UsesFast() {
  if (m_isIndexed || !m_fastStatus) return m_fastStatus.ok();
  std::vector<Id> ids;
  m_fastStatus = m_fast->List([&](std::span<const Id> batch) {
    ids.insert(ids.end(), batch.begin(), batch.end());
    return true;
  });
  if (!m_fastStatus) return false;
  const Result<std::vector<std::optional<std::uint64_t>>> sizes = m_fast->Sizes(ids);
  if (!sizes) {
    m_fastStatus = sizes.error();
    return false;
  }
  for (std::size_t index = 0; index < ids.size(); ++index) {
    if ((*sizes)[index]) Enter(ids[index], *(*sizes)[index]);
  }
  m_isIndexed = true;
  return true;
}

/// Puts an object at the front of the uses.
void CacheStore::Enter(const Id& id, std::uint64_t sizeBytes) {
  const auto found = m_entries.find(id);
  if (found != m_entries.end()) {
    m_uses.splice(m_uses.begin(), m_uses, found->second.use);
    return;
  }
  std::list<Id> use{id};
  m_entries.emplace(id, Entry{sizeBytes, use.begin()});
  m_uses.splice(m_uses.begin(), use);
  m_cachedBytes += sizeBytes;
}

void CacheStore::Drop(const Id& id) {
  const auto found = m_entries.find(id);
  if (found == m_entries.end()) return;
  m_cachedBytes -= found->second.sizeBytes;
  m_uses.erase(found->second.use);
  m_entries.erase(found);
}

/// Passes what the fast store has, and returns the other ids.
std::vector<Id> CacheStore::ReadCached(std::span<const Id> ids, const ReadSink& sink) {
  std::vector<Id> rest;
  std::vector<Id> cached;
  std::unordered_set<Id> lost;
  const bool uses_fast = UsesFast();
  for (const Id& id : ids) {
    const bool is_cached = uses_fast && m_entries.contains(id);
    (is_cached ? cached : rest).push_back(id);
  }
  if (cached.empty()) return rest;
  lost.insert(cached.begin(), cached.end());
  Status status = m_fast->Read(cached, [&](const Id& id, Result<Buffer> packed) {
    if (!packed || !Fits(id, *packed) || lost.erase(id) == 0) return;
    Enter(id, packed->GetSize());
    sink(id, std::move(packed));
  });
  if (!status) m_fastStatus = std::move(status);
  for (const Id& id : lost) {
    Drop(id);
    rest.push_back(id);
  }
  return rest;
}

/// Puts objects into the fast store, and makes room in it.
void CacheStore::Keep(std::span<const StoredObject> objects) {
  if (!UsesFast()) return;
  std::vector<StoredObject> kept;
  for (const StoredObject& object : objects) {
    const std::uint64_t size_bytes = object.packed.GetSize();
    if (size_bytes > m_options.mostBytes / 4 || m_entries.contains(object.id)) continue;
    kept.push_back(object);
  }
  if (kept.empty()) return;
  m_fastStatus = m_fast->Write(kept);
  // A removal, such as that of the oldest uses, breaks the save that the fast store is in. The next
  // write begins another.
  if (!m_fastStatus && m_fastStatus.error().code == ErrorCode::Busy) {
    m_fastStatus = m_fast->Write(kept);
  }
  if (!m_fastStatus) return;
  for (const StoredObject& object : kept) Enter(object.id, object.packed.GetSize());
  if (m_cachedBytes <= m_options.mostBytes) return;
  std::vector<Id> used;
  std::uint64_t size_bytes = 0;
  for (const Id& id : m_uses) {
    size_bytes += m_entries.at(id).sizeBytes;
    if (size_bytes > m_options.mostBytes / 4 * 3) break;
    used.push_back(id);
  }
  KeepOnly(used);
}

/// Removes all other objects from the fast store.
void CacheStore::KeepOnly(const std::vector<Id>& ids) {
  const Result<RemovedObjects> removed = m_fast->RemoveUnmarked(
      [&](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> { return ids; });
  if (!removed) m_fastStatus = removed.error();
  const std::unordered_set<Id> kept(ids.begin(), ids.end());
  for (auto at = m_uses.begin(); at != m_uses.end();) {
    const Id& id = *at++;
    if (!kept.contains(id)) Drop(id);
  }
}

Result<std::vector<Id>> CacheStore::Missing(std::span<const Id> ids) {
  return Slow(m_slow->Missing(ids));
}

Status CacheStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  const std::vector<Id> rest = ReadCached(ids, sink);
  if (rest.empty()) return {};
  std::vector<StoredObject> found;
  Status status = Slow(m_slow->Read(rest, [&](const Id& id, Result<Buffer> packed) {
    if (packed && Fits(id, *packed)) found.push_back({id, *packed});
    sink(id, std::move(packed));
  }));
  Keep(found);
  return status;
}

Status CacheStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  std::optional<Id> next = id;
  std::uint64_t count = 0;
  // From the cache as far as it goes on without a gap, and then from the slow store.
  while (next && count < most) {
    const Id current = *std::exchange(next, std::nullopt);
    const std::vector<Id> rest =
        ReadCached({&current, 1}, [&](const Id& found, Result<Buffer> packed) {
          ++count;
          next = ParentOf(*packed);
          sink(found, std::move(packed));
        });
    if (rest.empty()) continue;
    std::vector<StoredObject> found;
    Status status = Slow(
        m_slow->ReadHistory(current, most - count, [&](const Id& commit, Result<Buffer> packed) {
          if (packed && Fits(commit, *packed)) found.push_back({commit, *packed});
          sink(commit, std::move(packed));
        }));
    Keep(found);
    return status;
  }
  return {};
}

Result<std::vector<std::optional<std::uint64_t>>> CacheStore::Sizes(std::span<const Id> ids) {
  return Slow(m_slow->Sizes(ids));
}

Status CacheStore::Write(std::span<const StoredObject> objects) {
  Status status = Slow(m_slow->Write(objects));
  if (status) Keep(objects);
  return status;
}

Result<std::vector<Head>> CacheStore::Heads() {
  Result<std::vector<Head>> heads = Slow(m_slow->Heads());
  if (heads) KeepHeads(*heads);
  if (!m_isOffline || !KeepsHeads()) return heads;
  std::optional<std::vector<Head>> kept = KeptHeads();
  return kept ? Result(*std::move(kept)) : heads;
}

Status CacheStore::MoveHeads(std::span<const HeadMove> moves) {
  Status status = Slow(m_slow->MoveHeads(moves));
  if (!status || !KeepsHeads()) return status;
  const std::optional<std::string> kept = KeptText(kHeadsKey);
  std::optional<HeadTable> table = kept ? HeadsOfText(*kept) : std::nullopt;
  if (!table) return status;
  ApplyMoves(*table, moves);
  KeepHeads(ListHeads(*table));
  return status;
}

void CacheStore::KeepHeads(const std::vector<Head>& heads) {
  if (KeepsHeads()) KeepText(kHeadsKey, TextOfHeads(heads));
}

/// Returns the heads that the fast store keeps; nothing if it keeps none.
std::optional<std::vector<Head>> CacheStore::KeptHeads() {
  const std::optional<std::string> kept = KeptText(kHeadsKey);
  const std::optional<HeadTable> table = kept ? HeadsOfText(*kept) : std::nullopt;
  return table ? std::optional(ListHeads(*table)) : std::nullopt;
}

/// Keeps a value of the slow store. That it has none is kept too, before a former value goes.
void CacheStore::KeepValue(std::string_view name, const std::optional<std::string>& value) {
  if (!value) KeepText(std::string(kReadPrefix).append(name), std::string());
  KeepText(std::string(kValuePrefix).append(name), value);
}

/// Returns the value that the slow store had when it was read last; an empty inner optional if it
/// had none. Returns nothing if that isn't known.
std::optional<std::optional<std::string>> CacheStore::KeptValue(std::string_view name) {
  std::optional<std::string> value = KeptText(std::string(kValuePrefix).append(name));
  if (!value && (!m_fastStatus || !KeptText(std::string(kReadPrefix).append(name)))) return {};
  return std::make_optional<std::optional<std::string>>(std::move(value));
}

/// Keeps a text in the fast store, unless it is there.
void CacheStore::KeepText(const std::string& key, const std::optional<std::string>& text) {
  if (!m_fastStatus || KeptText(key) == text || !m_fastStatus) return;
  m_fastStatus = m_fast->SetValue(key, text);
}

std::optional<std::string> CacheStore::KeptText(const std::string& key) {
  Result<std::optional<std::string>> text = m_fast->Value(key);
  if (text) return *std::move(text);
  m_fastStatus = std::move(text).error();
  return std::nullopt;
}

std::vector<Id> CacheStore::FindUncached(std::span<const Id> ids) {
  std::vector<Id> uncached;
  const bool uses_fast = UsesFast();
  for (const Id& id : ids) {
    if (!uses_fast || !m_entries.contains(id)) uncached.push_back(id);
  }
  return uncached;
}

Status CacheStore::List(const IdSink& sink) { return Slow(m_slow->List(sink)); }

Result<RemovedObjects> CacheStore::RemoveUnmarked(const MarkObjects& mark) {
  std::vector<Id> kept;
  Result<RemovedObjects> removed = Slow(m_slow->RemoveUnmarked([&](std::span<const Head> heads) {
    Result<std::vector<Id>> marked = mark(heads);
    if (marked) kept = *marked;
    return marked;
  }));
  if (removed && UsesFast()) KeepOnly(kept);
  return removed;
}

Result<std::optional<std::string>> CacheStore::Value(std::string_view name) {
  Result<std::optional<std::string>> value = Slow(m_slow->Value(name));
  if (value && KeepsHeads()) KeepValue(name, *value);
  if (!m_isOffline || !KeepsHeads()) return value;
  std::optional<std::optional<std::string>> kept = KeptValue(name);
  return kept ? Result(*std::move(kept)) : value;
}

Status CacheStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  Status status = Slow(m_slow->SetValue(name, value));
  if (status && KeepsHeads()) {
    KeepValue(name, value ? std::optional<std::string>(*value) : std::nullopt);
  }
  return status;
}

Status CacheStore::Replace(std::span<const StoredObject> objects) {
  return Slow(ReplaceObjects(*m_slow, objects));
}

void CacheStore::Trim() noexcept {
  TrimStore(*m_fast);
  TrimStore(*m_slow);
}

Result<std::vector<Head>> CacheStore::WaitForHeads(std::span<const Head> seen,
                                                   std::chrono::milliseconds timeout) {
  return Slow(WatchHeads(*m_slow, seen, timeout));
}

Result<StoreOpening> CacheStore::ReadOpening(std::string_view branch, std::string_view valueName,
                                             std::string_view otherwise) {
  Result<StoreOpening> opening = Slow(Kit::ReadOpening(*m_slow, branch, valueName, otherwise));
  if (opening) {
    std::erase_if(opening->objects,
                  [](const StoredObject& object) { return !Fits(object.id, object.packed); });
    Keep(opening->objects);
    KeepHeads(opening->heads);
    if (KeepsHeads()) KeepValue(valueName, opening->value);
  }
  if (!m_isOffline || !KeepsHeads()) return opening;
  std::optional<std::vector<Head>> heads = KeptHeads();
  std::optional<std::optional<std::string>> value = KeptValue(valueName);
  if (!heads || !value) return opening;
  return StoreOpening{*std::move(heads), *std::move(value), {}};
}

Result<RemovedObjects> CacheStore::RemoveGradually(const MarkObjects& mark,
                                                   std::chrono::milliseconds grace) {
  return Slow(Kit::RemoveGradually(*m_slow, mark, grace));
}

}  // namespace TalVcs::Kit
