#include <kit/store/head_table.h>
#include <kit/store/read_history.h>
#include <kit/text.h>
#include <stores/encryption/encrypted_store.h>
#include <stores/encryption/internal/key_header.h>
#include <stores/encryption/internal/sealer.h>

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

namespace {

using Encryption::Key;
using Encryption::Sealer;

// The most objects whose sizes are read at once.
constexpr std::size_t kMostIds = 256;

/// Prepares the library of ciphers, once in a process.
Status Prepare() {
  if (sodium_init() >= 0) return {};
  Error error;
  error.code = ErrorCode::Unavailable;
  error.message = "the system has no random numbers for encryption";
  return error;
}

Error NotEmpty(std::string message) {
  Error error;
  error.code = ErrorCode::Conflict;
  error.message = "cannot make an encrypted store: " + std::move(message);
  error.unchanged = "the store is unchanged";
  return error;
}

/// Returns an error unless the store has no header, no branches and no objects.
Status CheckEmpty(IObjectStore& store) {
  const Result<std::optional<std::string>> header = store.Value(Encryption::kHeaderName);
  if (!header) return header.error();
  if (*header) return NotEmpty("the store is encrypted already");
  const Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return heads.error();
  bool has_objects = false;
  Status listed = store.List([&](std::span<const Id> ids) {
    has_objects = has_objects || !ids.empty();
    return !has_objects;
  });
  if (!listed) return listed;
  if (has_objects || !heads->empty()) return NotEmpty("the store isn't empty");
  return {};
}

Error DamagedBranch() {
  Error error;
  error.code = ErrorCode::Damaged;
  error.message = "the encrypted name of a branch was changed";
  return error;
}

std::vector<Id> SealIds(const Sealer& sealer, std::span<const Id> ids) {
  std::vector<Id> sealed;
  sealed.reserve(ids.size());
  for (const Id& id : ids) sealed.push_back(sealer.SealId(id));
  return sealed;
}

/// Puts the id in clear into the error of an object.
Error OpenError(Error error, const Id& id) {
  error.subject = ToUtf8(id.View());
  if (error.code == ErrorCode::NotFound) error.message = NoSuchObject(id).message;
  return error;
}

}  // namespace

Result<EncryptedStore> EncryptedStore::Create(std::shared_ptr<IObjectStore> store,
                                              std::string_view password, PasswordCost cost) {
  if (Status status = Prepare(); !status) return std::move(status).error();
  if (Status status = CheckEmpty(*store); !status) return std::move(status).error();
  Key key;
  randombytes_buf(key.data(), Key::size());
  const Result<std::string> header = Encryption::MakeHeader(key, password, cost);
  if (!header) return header.error();
  if (Status status = store->SetValue(Encryption::kHeaderName, *header); !status) {
    return std::move(status).error();
  }
  return EncryptedStore(std::move(store), std::make_unique<Sealer>(key));
}

Result<EncryptedStore> EncryptedStore::Open(std::shared_ptr<IObjectStore> store,
                                            std::string_view password, PasswordCost mostCost) {
  if (Status status = Prepare(); !status) return std::move(status).error();
  const Result<std::optional<std::string>> header = store->Value(Encryption::kHeaderName);
  if (!header) return header.error();
  if (!*header) {
    Error error;
    error.code = ErrorCode::NotFound;
    error.message = "the store is not encrypted";
    return error;
  }
  Key key;
  if (Status status = Encryption::OpenHeader(**header, password, mostCost, key); !status) {
    return std::move(status).error();
  }
  return EncryptedStore(std::move(store), std::make_unique<Sealer>(key));
}

EncryptedStore::EncryptedStore(std::shared_ptr<IObjectStore> store,
                               std::unique_ptr<Sealer> sealer) noexcept
    : m_store(std::move(store)), m_sealer(std::move(sealer)) {}
EncryptedStore::EncryptedStore(EncryptedStore&& other) noexcept = default;
EncryptedStore& EncryptedStore::operator=(EncryptedStore&& other) noexcept = default;
EncryptedStore::~EncryptedStore() = default;

Status EncryptedStore::ChangePassword(std::string_view newPassword, PasswordCost cost) {
  const Result<std::string> header = Encryption::MakeHeader(m_sealer->GetKey(), newPassword, cost);
  if (!header) return header.error();
  return m_store->SetValue(Encryption::kHeaderName, *header);
}

Result<std::vector<Id>> EncryptedStore::Missing(std::span<const Id> ids) {
  Result<std::vector<Id>> missing = m_store->Missing(SealIds(*m_sealer, ids));
  if (!missing) return missing;
  for (Id& id : *missing) id = m_sealer->OpenId(id);
  return missing;
}

Status EncryptedStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  return m_store->Read(
      SealIds(*m_sealer, ids), [&](const Id& sealed_id, const Result<Buffer>& sealed) {
        const Id id = m_sealer->OpenId(sealed_id);
        sink(id, sealed ? m_sealer->OpenObject(id, *sealed) : OpenError(sealed.error(), id));
      });
}

Status EncryptedStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> EncryptedStore::Sizes(std::span<const Id> ids) {
  std::unordered_map<Id, std::uint64_t> found;
  Status status = m_store->Read(
      SealIds(*m_sealer, ids), [&](const Id& sealed_id, const Result<Buffer>& sealed) {
        const Id id = m_sealer->OpenId(sealed_id);
        const auto size = sealed ? m_sealer->SizeOf(id, *sealed) : std::nullopt;
        if (size) found.emplace(id, *size);
      });
  if (!status) return std::move(status).error();
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const auto size = found.find(id);
    sizes.push_back(size == found.end() ? std::nullopt : std::optional(size->second));
  }
  return sizes;
}

Result<std::vector<StoredObject>> EncryptedStore::SealObjects(
    std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  std::vector<StoredObject> sealed;
  sealed.reserve(objects.size());
  for (const StoredObject& object : objects) {
    sealed.push_back({m_sealer->SealId(object.id), m_sealer->SealObject(object.id, object.packed)});
  }
  return sealed;
}

Status EncryptedStore::Write(std::span<const StoredObject> objects) {
  const Result<std::vector<StoredObject>> sealed = SealObjects(objects);
  return sealed ? m_store->Write(*sealed) : Status(sealed.error());
}

Status EncryptedStore::Replace(std::span<const StoredObject> objects) {
  const Result<std::vector<StoredObject>> sealed = SealObjects(objects);
  return sealed ? ReplaceObjects(*m_store, *sealed) : Status(sealed.error());
}

void EncryptedStore::Trim() noexcept { TrimStore(*m_store); }

/// Returns the heads in clear, sorted by their names.
Result<std::vector<Head>> EncryptedStore::OpenHeads(std::span<const Head> sealed) {
  std::vector<Head> heads;
  bool is_damaged = false;
  for (const Head& head : sealed) {
    std::optional<std::string> name = m_sealer->OpenBranch(head.name);
    if (name) {
      Id id = m_sealer->OpenHead(*name, head.id);
      heads.push_back({*std::move(name), std::move(id)});
    } else {
      is_damaged = true;
    }
  }
  std::sort(heads.begin(), heads.end(),
            [](const Head& a, const Head& b) { return a.name < b.name; });
  if (!is_damaged) return heads;
  Error error = DamagedBranch();
  error.heads = std::move(heads);
  return error;
}

/// Returns the heads in clear, or the error with the heads of it in clear.
Result<std::vector<Head>> EncryptedStore::OpenHeads(Result<std::vector<Head>> sealed) {
  if (sealed) return OpenHeads(std::span<const Head>(*sealed));
  Error error = std::move(sealed).error();
  Result<std::vector<Head>> heads = OpenHeads(std::span<const Head>(error.heads));
  error.heads = heads ? *std::move(heads) : std::move(heads).error().heads;
  return error;
}

Result<std::vector<Head>> EncryptedStore::Heads() { return OpenHeads(m_store->Heads()); }

Result<std::vector<Head>> EncryptedStore::WaitForHeads(std::span<const Head> seen,
                                                       std::chrono::milliseconds timeout) {
  std::vector<Head> sealed;
  for (const Head& head : seen) {
    sealed.push_back({m_sealer->SealBranch(head.name), m_sealer->SealHead(head.name, head.id)});
  }
  std::sort(sealed.begin(), sealed.end(),
            [](const Head& a, const Head& b) { return a.name < b.name; });
  return OpenHeads(WatchHeads(*m_store, sealed, timeout));
}

Result<StoreOpening> EncryptedStore::ReadOpening(std::string_view branch,
                                                 std::string_view valueName,
                                                 std::string_view otherwise) {
  const std::string sealed_branch = branch.empty() ? std::string() : m_sealer->SealBranch(branch);
  Result<StoreOpening> sealed = Kit::ReadOpening(
      *m_store, sealed_branch, m_sealer->SealValueName(valueName), m_sealer->SealBranch(otherwise));
  Result<std::vector<Head>> heads =
      OpenHeads(sealed ? Result<std::vector<Head>>(std::move(sealed->heads))
                       : Result<std::vector<Head>>(std::move(sealed).error()));
  if (!heads) return std::move(heads).error();
  StoreOpening opening{*std::move(heads), std::nullopt, {}};
  if (sealed->value) opening.value = m_sealer->OpenValue(valueName, *sealed->value);
  return opening;
}

/// Puts names and heads in clear into the error of a move.
Error EncryptedStore::OpenConflict(Error error, std::span<const HeadMove> moves) {
  for (const HeadMove& move : moves) {
    const std::string sealed = m_sealer->SealBranch(move.name);
    for (Head& head : error.heads) {
      if (head.name != sealed) continue;
      head.name = move.name;
      head.id = m_sealer->OpenHead(move.name, head.id);
    }
    if (error.subject != sealed) continue;
    error.subject = move.name;
    if (error.code == ErrorCode::Conflict) {
      error.message = "the branch \"" + move.name + "\" has moved meanwhile";
    } else if (error.code == ErrorCode::BadName) {
      error.message = "cannot move the branch \"" + move.name + "\" twice at once";
    }
  }
  return error;
}

Status EncryptedStore::MoveHeads(std::span<const HeadMove> moves) {
  std::vector<HeadMove> sealed;
  sealed.reserve(moves.size());
  for (const HeadMove& move : moves) {
    sealed.push_back({m_sealer->SealBranch(move.name), m_sealer->SealHead(move.name, move.expected),
                      m_sealer->SealHead(move.name, move.desired)});
  }
  Status status = m_store->MoveHeads(sealed);
  return status ? status : OpenConflict(std::move(status).error(), moves);
}

Status EncryptedStore::List(const IdSink& sink) {
  std::vector<Id> ids;
  return m_store->List([&](std::span<const Id> sealed) {
    ids.clear();
    for (const Id& id : sealed) ids.push_back(m_sealer->OpenId(id));
    return sink(ids);
  });
}

/// Returns the bytes of the packed forms that a removal is about to remove.
Result<std::uint64_t> EncryptedStore::CountUnmarkedBytes(const std::vector<Id>& marked) {
  const std::unordered_set<Id> kept(marked.begin(), marked.end());
  std::vector<Id> unmarked;
  Status status = List([&](std::span<const Id> ids) {
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(unmarked),
                 [&](const Id& id) { return !kept.contains(id); });
    return true;
  });
  if (!status) return std::move(status).error();
  std::uint64_t size_bytes = 0;
  for (std::span<const Id> rest = unmarked; !rest.empty();) {
    const std::size_t count = std::min(rest.size(), kMostIds);
    const auto sizes = Sizes(rest.first(count));
    if (!sizes) return sizes.error();
    for (const std::optional<std::uint64_t>& size : *sizes) size_bytes += size.value_or(0);
    rest = rest.subspan(count);
  }
  return size_bytes;
}

Result<RemovedObjects> EncryptedStore::RemoveUnmarked(const MarkObjects& mark) {
  std::uint64_t size_bytes = 0;
  Result<RemovedObjects> removed =
      m_store->RemoveUnmarked([&](std::span<const Head> sealed) -> Result<std::vector<Id>> {
        const Result<std::vector<Head>> heads = OpenHeads(sealed);
        if (!heads) return heads.error();
        Result<std::vector<Id>> marked = mark(*heads);
        if (!marked) return marked;
        const Result<std::uint64_t> counted = CountUnmarkedBytes(*marked);
        if (!counted) return counted.error();
        size_bytes = *counted;
        return SealIds(*m_sealer, *marked);
      });
  if (removed) removed->sizeBytes = size_bytes;
  return removed;
}

Result<std::optional<std::string>> EncryptedStore::Value(std::string_view name) {
  const Result<std::optional<std::string>> sealed = m_store->Value(m_sealer->SealValueName(name));
  if (!sealed || !*sealed) return sealed;
  std::optional<std::string> value = m_sealer->OpenValue(name, **sealed);
  if (value) return value;
  Error error;
  error.code = ErrorCode::Damaged;
  error.subject = std::string(name);
  error.message = "the encrypted value \"" + error.subject + "\" was changed";
  return error;
}

Status EncryptedStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  const std::string sealed_name = m_sealer->SealValueName(name);
  if (!value) return m_store->SetValue(sealed_name, std::nullopt);
  return m_store->SetValue(sealed_name, m_sealer->SealValue(name, *value));
}

}  // namespace TalVcs::Kit
