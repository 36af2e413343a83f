#include <kit/internal/object_paths.h>
#include <kit/store/head_table.h>
#include <kit/store/object_store_as_blobs.h>
#include <kit/text.h>
#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace TalVcs::Kit {

namespace {

// Objects are written in batches of about this size, so that a store that waits for its medium
// waits for many at once.
constexpr std::uint64_t kBatchBytes = std::uint64_t{4} << 20;
constexpr std::size_t kBatchObjects = 1000;

/// What a save has brought together so far.
struct Transaction {
  HeadTable base;
  HeadTable next;
  std::vector<StoredObject> batch;
  std::uint64_t batchBytes = 0;
};

HeadTable TableOf(std::vector<Head> heads) {
  HeadTable table;
  for (Head& head : heads) table.emplace(std::move(head.name), std::move(head.id));
  return table;
}

/// Returns the moves that make the heads of a store those of a save.
std::vector<HeadMove> MovesOf(const Transaction& transaction) {
  const HeadTable& base = transaction.base;
  const HeadTable& next = transaction.next;
  std::vector<HeadMove> moves;
  for (const auto& [name, id] : base) {
    if (!next.contains(name)) moves.push_back({name, id, Id()});
  }
  for (const auto& [name, id] : next) {
    const auto before = base.find(name);
    if (before == base.end()) {
      moves.push_back({name, Id(), id});
    } else if (before->second != id) {
      moves.push_back({name, before->second, id});
    }
  }
  return moves;
}

Error CannotWrite(const WideString& path, ErrorCode code, const char* why) {
  Error error;
  error.code = code;
  error.subject = ToUtf8(path);
  error.message = "cannot write \"" + error.subject + "\": " + why;
  return error;
}

}  // namespace

class ObjectStoreAsBlobs::Impl {
 public:
  Impl(IObjectStore& objectStore, std::string_view rootPath)
      : store(objectStore),
        paths(PathBuilder(ToWide(rootPath)).GetObjectsPath()),
        branches(PrefixBelow(PathBuilder(ToWide(rootPath)).GetBranchesPath())) {}

  Transaction& Writing();
  bool Fail(Error error);
  bool TakeIn(const WideString& path, const Buffer& bytes);
  bool WriteBatch();
  bool ReadHeads();
  std::vector<WideString> ListObjects(const WideString& directory);

  IObjectStore& store;
  const ObjectPaths paths;
  const WideString branches;
  std::optional<Transaction> transaction;
  Status failure;  // of the transaction
  Status lastStatus;
  std::optional<HeadTable> heads;  // that were read
};

bool ObjectStoreAsBlobs::Impl::Fail(Error error) {
  lastStatus = std::move(error);
  return false;
}

Transaction& ObjectStoreAsBlobs::Impl::Writing() {
  if (transaction) return *transaction;
  Result<std::vector<Head>> found = store.Heads();
  Transaction begun;
  if (found) {
    begun.base = TableOf(*std::move(found));
    begun.next = begun.base;
  }
  failure = found ? Status() : Status(found.error());
  lastStatus = failure;
  return transaction.emplace(std::move(begun));
}

bool ObjectStoreAsBlobs::Impl::WriteBatch() {
  Status status = store.Write(transaction->batch);
  transaction->batch.clear();
  transaction->batchBytes = 0;
  return status || Fail(std::move(status).error());
}

bool ObjectStoreAsBlobs::Impl::TakeIn(const WideString& path, const Buffer& bytes) {
  if (const std::optional<ObjectKey> key = paths.KeyOf(path)) {
    transaction->batch.push_back({IdOf(*key), bytes});
    transaction->batchBytes += bytes.GetSize();
    return (transaction->batchBytes < kBatchBytes && transaction->batch.size() < kBatchObjects) ||
           WriteBatch();
  }
  if (!path.StartsWith(branches)) {
    return Fail(CannotWrite(path, ErrorCode::Unsupported, "it is neither an object nor a branch"));
  }
  const Id id(ToWide(BytesFromBuffer(bytes)));
  if (!IsObjectId(id)) {
    return Fail(CannotWrite(path, ErrorCode::BadName, "it doesn't hold the id of a head"));
  }
  transaction->next.insert_or_assign(ToUtf8(path.Mid(branches.GetLength())), id);
  return true;
}

bool ObjectStoreAsBlobs::Impl::ReadHeads() {
  heads.reset();
  Result<std::vector<Head>> found = store.Heads();
  if (!found) return Fail(std::move(found).error());
  heads = TableOf(*std::move(found));
  return true;
}

std::vector<WideString> ObjectStoreAsBlobs::Impl::ListObjects(const WideString& directory) {
  std::vector<ObjectKey> keys;
  Status status = store.List([&](std::span<const Id> ids) {
    for (const Id& id : ids) {
      if (const std::optional<ObjectKey> key = KeyOf(id)) keys.push_back(*key);
    }
    return true;
  });
  std::vector<WideString> names;
  if (!status) {
    Fail(std::move(status).error());
    return names;
  }
  std::sort(keys.begin(), keys.end());
  paths.AppendNames(keys, directory, names);
  return names;
}

ObjectStoreAsBlobs::ObjectStoreAsBlobs(IObjectStore& store, std::string_view rootPath)
    : m_impl(std::make_unique<Impl>(store, rootPath)) {}
ObjectStoreAsBlobs::~ObjectStoreAsBlobs() = default;

Stream ObjectStoreAsBlobs::CreateBlobStream(const WideString& /*path*/) {
  return MemStream::Create(0);
}

bool ObjectStoreAsBlobs::CommitBlobStream(const WideString& path, Stream stream) {
  m_impl->Writing();
  if (!m_impl->failure) return false;
  Buffer bytes;
  const bool done = StreamIO(stream).ReadToEnd(bytes)
                        ? m_impl->TakeIn(path, bytes)
                        : m_impl->Fail(CannotWrite(path, ErrorCode::Unavailable,
                                                   "the stream gave fewer bytes than its size"));
  if (!done) m_impl->failure = m_impl->lastStatus;
  return done;
}

void ObjectStoreAsBlobs::RemoveStorage(const WideString& storagePath) {
  Transaction& writing = m_impl->Writing();
  const WideString prefix = PrefixBelow(storagePath);
  std::erase_if(writing.next, [&](const auto& head) {
    return (m_impl->branches + ToWide(head.first)).StartsWith(prefix);
  });
}

StreamIO ObjectStoreAsBlobs::OpenBlob(const WideString& path) {
  if (path.StartsWith(m_impl->branches)) {
    if (!m_impl->heads && !m_impl->ReadHeads()) return {};
    const auto found = m_impl->heads->find(ToUtf8(path.Mid(m_impl->branches.GetLength())));
    if (found == m_impl->heads->end()) return {};
    const std::string id = ToUtf8(found->second.View());
    Buffer bytes;
    bytes.Append(id.data(), id.size());
    return ReaderOf(bytes);
  }
  const std::optional<ObjectKey> key = m_impl->paths.KeyOf(path);
  if (!key) return {};
  const Id id = IdOf(*key);
  StreamIO reader;
  Status status = m_impl->store.Read({&id, 1}, [&](const Id& /*id*/, Result<Buffer> packed) {
    if (packed) {
      reader = ReaderOf(*packed);
    } else if (packed.error().code != ErrorCode::NotFound) {
      m_impl->Fail(std::move(packed).error());
    }
  });
  if (!status) m_impl->Fail(std::move(status).error());
  return reader;
}

std::vector<WideString> ObjectStoreAsBlobs::ListBlobs(const WideString& directoryPath) {
  const WideString prefix = PrefixBelow(directoryPath);
  if (!prefix.StartsWith(m_impl->branches)) return m_impl->ListObjects(directoryPath);
  std::vector<WideString> names;
  if (!m_impl->ReadHeads()) return names;
  for (const auto& [name, id] : *m_impl->heads) {
    const WideString path = m_impl->branches + ToWide(name);
    if (path.StartsWith(prefix)) names.push_back(path.Mid(prefix.GetLength()));
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A commit that runs out of memory can be repeated: the save ends once its outcome is known.
Status ObjectStoreAsBlobs::Commit() {
  if (!m_impl->transaction) return {};
  const bool written = m_impl->failure && m_impl->WriteBatch();
  if (written) m_impl->lastStatus = m_impl->store.MoveHeads(MovesOf(*m_impl->transaction));
  m_impl->transaction.reset();
  return m_impl->failure ? m_impl->lastStatus : m_impl->failure;
}

void ObjectStoreAsBlobs::Abandon() { m_impl->transaction.reset(); }

const Status& ObjectStoreAsBlobs::LastStatus() const noexcept { return m_impl->lastStatus; }

}  // namespace TalVcs::Kit
