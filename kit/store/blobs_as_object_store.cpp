#include <kit/internal/store_state.h>
#include <kit/store/blobs_as_object_store.h>
#include <kit/store/head_table.h>
#include <kit/store/read_history.h>
#include <kit/text.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

Error Unsupported(const char* what) {
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = std::string("a store of streams can't ") + what;
  return error;
}

Error ObjectNotWritten(const Id& id) {
  Error error;
  error.code = ErrorCode::Unavailable;
  error.subject = ToUtf8(id.View());
  error.message = "cannot write object " + error.subject + ": the store refused its stream";
  error.unchanged = "no branch was moved";
  return error;
}

Error BranchesNotWritten() {
  Error error;
  error.code = ErrorCode::Unknown;
  error.message = "cannot write all branches: the store refused a stream";
  error.unchanged = "some branches may have moved; read the heads to find out";
  return error;
}

}  // namespace

BlobsAsObjectStore::BlobsAsObjectStore(IBlobReader& reader, IBlobWriter& writer,
                                       std::string_view rootPath, EndChange endChange)
    : m_reader(reader),
      m_writer(writer),
      m_paths(ToWide(rootPath)),
      m_endChange(std::move(endChange)) {}
BlobsAsObjectStore::~BlobsAsObjectStore() = default;

std::optional<Buffer> BlobsAsObjectStore::ReadStream(const WideString& path) {
  StreamIO stream = m_reader.OpenBlob(path);
  Buffer bytes;
  if (!stream || !stream.ReadToEnd(bytes)) return std::nullopt;
  return bytes;
}

Result<Buffer> BlobsAsObjectStore::ReadObject(const Id& id) {
  if (!IsObjectId(id)) return NoSuchObject(id);
  std::optional<Buffer> packed = ReadStream(m_paths.GetObjectW(id));
  // A reader may return an empty stream for a path without bytes, and no packed form is empty.
  if (!packed || packed->IsEmpty()) return NoSuchObject(id);
  return *std::move(packed);
}

bool BlobsAsObjectStore::WriteStream(const WideString& path, const Buffer& bytes) {
  Stream stream = m_writer.CreateBlobStream(path);
  const bool taken = bytes.AppendTo(stream, nullptr);
  stream.SeekToBegin();
  return m_writer.CommitBlobStream(path, stream) && taken;
}

bool BlobsAsObjectStore::WriteHead(const std::string& name, const Id& id) {
  const std::string text = ToUtf8(id.View());
  Buffer bytes;
  bytes.Append(text.data(), text.size());
  return WriteStream(m_paths.GetBranch(ToWide(name)), bytes);
}

Status BlobsAsObjectStore::End(bool succeeded) {
  return m_endChange ? m_endChange(succeeded) : Status();
}

Result<std::vector<Id>> BlobsAsObjectStore::Missing(std::span<const Id> ids) {
  std::vector<Id> missing;
  for (const Id& id : ids) {
    if (!ReadObject(id)) missing.push_back(id);
  }
  return missing;
}

Status BlobsAsObjectStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  for (const Id& id : ids) sink(id, ReadObject(id));
  return {};
}

Status BlobsAsObjectStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> BlobsAsObjectStore::Sizes(
    std::span<const Id> ids) {
  std::vector<std::optional<std::uint64_t>> sizes;
  for (const Id& id : ids) {
    const Result<Buffer> packed = ReadObject(id);
    sizes.push_back(packed ? std::optional(packed->GetSize()) : std::nullopt);
  }
  return sizes;
}

Status BlobsAsObjectStore::Write(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  std::optional<Id> refused;
  bool changed = false;
  for (const StoredObject& object : objects) {
    if (refused || ReadObject(object.id)) continue;
    if (!WriteStream(m_paths.GetObjectW(object.id), object.packed)) refused = object.id;
    changed = true;
  }
  if (!changed) return {};
  Status ended = End(!refused);
  return refused ? Status(ObjectNotWritten(*refused)) : ended;
}

Result<std::map<std::string, Id>> BlobsAsObjectStore::ReadHeads() {
  HeadTable heads;
  for (const WideString& name : m_reader.ListBlobs(m_paths.GetBranchesPath())) {
    const std::optional<Buffer> bytes = ReadStream(m_paths.GetBranch(name));
    const Id id(bytes ? ToWide(BytesFromBuffer(*bytes)) : WideString());
    if (!IsObjectId(id)) {
      Error error;
      error.code = bytes ? ErrorCode::Damaged : ErrorCode::Unavailable;
      error.subject = ToUtf8(name);
      error.message = "cannot read the head of the branch \"" + error.subject + '"';
      return error;
    }
    heads.emplace(ToUtf8(name), id);
  }
  return heads;
}

Result<std::vector<Head>> BlobsAsObjectStore::Heads() {
  Result<HeadTable> heads = ReadHeads();
  if (!heads) return std::move(heads).error();
  return ListHeads(*heads);
}

Status BlobsAsObjectStore::MoveHeads(std::span<const HeadMove> moves) {
  Result<HeadTable> heads = ReadHeads();
  if (!heads) return std::move(heads).error();
  if (Status status = CheckMoves(*heads, moves); !status || moves.empty()) return status;
  ApplyMoves(*heads, moves);
  bool removes = false;
  for (const HeadMove& move : moves) removes = removes || move.desired.View().IsEmpty();
  bool done = true;
  if (removes) {
    m_writer.RemoveStorage(m_paths.GetBranchesPath());
    for (const auto& [name, id] : *heads) done = done && WriteHead(name, id);
  } else {
    for (const HeadMove& move : moves) done = done && WriteHead(move.name, move.desired);
  }
  Status ended = End(done);
  return done ? std::move(ended) : Status(BranchesNotWritten());
}

Status BlobsAsObjectStore::List(const IdSink& sink) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const std::string objects = ToUtf8(m_paths.GetObjectsPath()) + '/';
  for (const char high : kDigits) {
    for (const char low : kDigits) {
      const std::string prefix = {high, low};
      std::vector<Id> ids;
      for (const WideString& name : m_reader.ListBlobs(ToWide(objects + prefix))) {
        Id id(ToWide(prefix + ToUtf8(name)));
        if (IsObjectId(id)) ids.push_back(std::move(id));
      }
      if (!ids.empty() && !sink(ids)) return {};
    }
  }
  return {};
}

Result<RemovedObjects> BlobsAsObjectStore::RemoveUnmarked(const MarkObjects& /*mark*/) {
  return Unsupported("remove single objects");
}

Result<std::optional<std::string>> BlobsAsObjectStore::Value(std::string_view /*name*/) {
  return Unsupported("keep values");
}

Status BlobsAsObjectStore::SetValue(std::string_view /*name*/,
                                    std::optional<std::string_view> /*value*/) {
  return Unsupported("keep values");
}

}  // namespace TalVcs::Kit
