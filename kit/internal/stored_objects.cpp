#include <kit/internal/object_removal.h>
#include <kit/internal/stored_objects.h>
#include <kit/store/head_table.h>
#include <talvcs/foundation/helpers.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <utility>

// A write keeps the order of its objects, because one that is there is taken for whole with all
// that it names: an append to a pack is found up to where it is whole, and a file of its own gets
// its name after everything before it is on the medium. Blobs name nothing, so their files come
// first, all together.

namespace TalVcs::Kit {

namespace {

// An object that takes more as it is becomes a file, which a later rewrite of the packs needn't
// copy.
constexpr std::size_t kMostPlainBytes = std::size_t{1} << 20;
// One that is larger isn't worth the memory that compressing takes.
constexpr std::uint64_t kMostCompressedBytes = std::uint64_t{64} << 20;
constexpr std::uint64_t kMostPendingBytes = std::uint64_t{8} << 20;

std::span<const std::byte> BytesOf(const std::string& text) {
  return std::as_bytes(std::span(text));
}

bool IsBlob(const Buffer& packed) {
  constexpr std::string_view kBlob = "blob ";
  std::string type(kBlob.size(), '\0');
  return packed.ReadAt(0, type.data(), type.size()) == type.size() && type == kBlob;
}

}  // namespace

/// True unless the state says that a file of that name is no object.
bool StoredObjects::MayHaveFile(const ObjectKey& key) const {
  const StoreState* former = m_state.Former();
  return former != nullptr ? former->HasObject(key) : !m_state.Get().removedFiles.contains(key);
}

void StoredObjects::UsePacks() {
  const JournalState& state = m_state.Get();
  const bool all_stay = m_packs.Use(state.packs) && state.removals == m_removals;
  if (!all_stay) m_encoded.Clear();
  m_removals = state.removals;
}

Result<std::optional<std::uint64_t>> StoredObjects::SizeOf(const ObjectKey& key) {
  Result<std::optional<std::uint64_t>> size = PackedSizeOf(key);
  if (!size || *size || !MayHaveFile(key)) return size;
  return m_files.SizeOf(key);
}

Result<std::optional<std::uint64_t>> StoredObjects::PackedSizeOf(const ObjectKey& key) {
  UsePacks();
  const Result<std::optional<PackedObjects::Found>> found = m_packs.ReadBeginning(key);
  if (!found) return found.error();
  if (!*found) return std::optional<std::uint64_t>();
  const Result<EncodedHeader> header = ReadEncodedHeader(BytesOf((*found)->bytes));
  if (!header) return header.error();
  return std::optional(header->sizeBytes);
}

// The newest versions come first in a walk along a history, and each is mostly the base of one that
// was read before.
Result<Buffer> StoredObjects::Read(const ObjectKey& key) {
  UsePacks();
  const Id id = IdOf(key);
  if (std::optional<Buffer> base = m_encoded.TakeBase(id)) return *std::move(base);
  const Result<std::optional<PackedObjects::Found>> found = m_packs.Read(key);
  if (!found) {
    // A large object is repaired by a file of its own.
    Result<Buffer> file = found.error().code == ErrorCode::Damaged ? ReadFile(key) : found.error();
    return file ? std::move(file) : found.error();
  }
  if (*found) {
    return m_encoded.Decode(id, BytesOf((*found)->bytes), EncodedReader());
  }
  return ReadFile(key);
}

/// Reads the file of an object that has one.
Result<Buffer> StoredObjects::ReadFile(const ObjectKey& key) {
  if (!MayHaveFile(key)) return NoSuchObject(IdOf(key));
  Result<Buffer> packed = m_files.Read(key);
  if (!packed && packed.error().code == ErrorCode::NotFound) return NoSuchObject(IdOf(key));
  return packed;
}

ReadEncoded StoredObjects::EncodedReader() {
  return [this](const Id& id) -> Result<Encoded> {
    const std::optional<ObjectKey> key = KeyOf(id);
    return key ? ReadEncodedForm(*key) : Result<Encoded>(NoSuchObject(id));
  };
}

Result<StoredObjects::Encoded> StoredObjects::ReadEncodedForm(const ObjectKey& key) {
  const auto pending = m_pending.find(key);
  if (pending != m_pending.end() && !pending->second.empty()) return pending->second;
  const Result<std::optional<PackedObjects::Found>> found = m_packs.Read(key);
  if (!found) return found.error();
  if (*found) {
    const std::span<const std::byte> bytes = BytesOf((*found)->bytes);
    return Encoded(bytes.begin(), bytes.end());
  }
  const Result<Buffer> packed = ReadFile(key);
  if (!packed) return packed.error();
  return ObjectEncoder::Plain(*packed);
}

Status StoredObjects::Visit(const std::function<void(const ObjectKey& key)>& visit) {
  std::vector<ObjectKey> keys;
  if (const StoreState* former = m_state.Former()) {
    keys = former->objects;
  } else {
    UsePacks();
    Status status = m_packs.Visit([&keys](const ScannedRecord& record, const PackPlace& /*place*/) {
      keys.push_back(record.key);
    });
    if (!status) return status;
    status = m_files.Visit([&](const ObjectKey& key, bool complete, const auto& /*path*/) {
      if (complete && MayHaveFile(key)) keys.push_back(key);
    });
    if (!status) return status;
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  }
  for (const ObjectKey& key : keys) visit(key);
  return {};
}

Result<bool> StoredObjects::BeginWriting() {
  UsePacks();
  return m_packs.BeginWriting();
}

/// Returns the encoded form; nothing for an object that becomes a file.
StoredObjects::Encoded StoredObjects::Encode(const StoredObject& object) {
  const std::uint64_t size = object.packed.GetSize();
  if (size > kMostCompressedBytes || (!m_compress && size > kMostPlainBytes)) return {};
  Encoded encoded =
      m_compress ? m_encoded.Encode(object, EncodedReader()) : ObjectEncoder::Plain(object.packed);
  const Result<EncodedHeader> header = ReadEncodedHeader(encoded);
  const bool is_plain = header && header->encoding == ObjectEncoding::Plain;
  const std::size_t most = is_plain ? kMostPlainBytes + header->headerBytes : kMostPackedBytes;
  return header && encoded.size() <= most ? encoded : Encoded();
}

/// Forgets what a write had in hand. Unless it has succeeded, nothing that it encoded may become a
/// base. Both also when memory runs out.
struct StoredObjects::Writing {
  explicit Writing(StoredObjects& of) : objects(of) {}
  Writing(const Writing&) = delete;
  Writing& operator=(const Writing&) = delete;
  ~Writing() {
    if (!isDone) objects.m_encoded.Clear();
    objects.ForgetPending();
  }

  StoredObjects& objects;
  bool isDone = false;
};

Status StoredObjects::Write(std::span<const StoredObject> objects) {
  Writing writing(*this);
  Status status;
  for (const StoredObject& object : objects) {
    if (status) status = WriteOne(object);
  }
  if (status) status = Flush();
  if (status) m_packs.WriteIndexIfDue();
  writing.isDone = status.ok();
  return status;
}

Status StoredObjects::Replace(std::span<const StoredObject> objects) {
  // What was read before may come from what is replaced, so nothing of it stays.
  const Writing writing(*this);
  Status status;
  for (const StoredObject& object : objects) {
    // Without a base: the one that the object had may be what is damaged.
    if (status && !m_pending.contains(*KeyOf(object.id))) {
      status = Put({object.id, object.packed, Id()});
    }
  }
  if (status) status = Flush();
  return status;
}

void StoredObjects::ForgetPending() {
  m_pendingFiles.clear();
  m_pending.clear();
  m_pendingOrder.clear();
  m_pendingBytes = 0;
}

Status StoredObjects::WriteOne(const StoredObject& object) {
  const ObjectKey key = *KeyOf(object.id);
  if (m_pending.contains(key)) return {};
  const Result<std::optional<std::uint64_t>> size = SizeOf(key);
  if (!size) return size.error();
  return *size ? Status() : Put(object);
}

/// Adds an object to what the next flush writes.
Status StoredObjects::Put(const StoredObject& object) {
  const ObjectKey key = *KeyOf(object.id);
  Encoded encoded = Encode(object);
  const bool is_file = encoded.empty();
  if (is_file && !IsBlob(object.packed)) {
    if (Status status = Flush(); !status) return status;
    const ObjectFiles::KeyedObject file(key, object.packed);
    return m_files.Write({&file, 1});
  }
  m_pendingBytes += is_file ? object.packed.GetSize() : encoded.size();
  if (is_file) {
    m_pendingFiles.emplace_back(key, object.packed);
  } else {
    m_pendingOrder.push_back(key);
  }
  m_pending.emplace(key, std::move(encoded));
  return m_pendingBytes < kMostPendingBytes ? Status() : Flush();
}

Status StoredObjects::Flush() {
  Status status = m_pendingFiles.empty() ? Status() : m_files.Write(m_pendingFiles);
  std::vector<PackedObjects::Entry> entries;
  for (const ObjectKey& key : m_pendingOrder) {
    const Encoded& encoded = m_pending[key];
    entries.push_back({key, {reinterpret_cast<const char*>(encoded.data()), encoded.size()}});
  }
  if (status && !entries.empty()) status = m_packs.Append(entries);
  if (status) status = NamePacks();
  if (status) ForgetPending();
  return status;
}

/// Records packs that the journal doesn't name yet.
Status StoredObjects::NamePacks() {
  JournalChanges changes;
  for (const auto& [number, size] : m_packs.GetPacks()) {
    if (!m_state.Get().packs.contains(number)) changes.SetPack(number, size);
  }
  return changes.IsEmpty() ? Status() : m_state.Record(changes);
}

Status StoredObjects::Keep(JournalChanges& changes) {
  if (Status status = m_files.SyncNames(); !status) return status;
  const PackSizes& named = m_state.Get().packs;
  const PackPlace end = m_packs.GetEnd();
  const auto found = named.find(end.pack);
  if (found == named.end() || found->second >= end.offset) return {};
  if (Status status = m_packs.Sync(); !status) return status;
  changes.SetPack(end.pack, end.offset);
  return {};
}

Status StoredObjects::FinishRemoval() {
  return m_state.Get().removedFiles.empty() ? Status() : ObjectRemoval(*this).Finish();
}

/// Forgets what a removal has encoded anew, also when it fails or memory runs out: only what is in
/// a pack may become a base.
struct StoredObjects::Removing {
  explicit Removing(EncodedObjects& of) : encoded(of) { encoded.Clear(); }
  Removing(const Removing&) = delete;
  Removing& operator=(const Removing&) = delete;
  ~Removing() { encoded.Clear(); }

  EncodedObjects& encoded;
};

Result<RemovedObjects> StoredObjects::RemoveAllBut(const std::set<ObjectKey>& kept) {
  const Removing removing(m_encoded);
  return ObjectRemoval(*this).Run(kept);
}

Status StoredObjects::CheckFiles(const StoreState& former) {
  std::vector<std::filesystem::path> invalid;
  Status status = m_files.Visit([&](const ObjectKey& key, bool complete, const auto& path) {
    if (complete && former.HasObject(key)) return;
    const Result<Buffer> bytes = m_files.Read(key);
    const bool whole =
        complete && bytes && ToUtf8(Helpers::ComputeEncodedSHA256Hash(*bytes)) == HexFromKey(key);
    if (!whole) invalid.push_back(path);
  });
  for (const std::filesystem::path& path : invalid) {
    if (status) status = m_files.Remove(path);
  }
  return status;
}

}  // namespace TalVcs::Kit
