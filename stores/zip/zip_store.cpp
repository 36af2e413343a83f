#include <kit/store/quietly.h>
#include <kit/store/read_history.h>
#include <stores/zip/internal/document.h>
#include <stores/zip/zip_store.h>

#include <utility>

namespace TalVcs::Kit {
namespace {

Error Closed() {
  Error error;
  error.code = ErrorCode::Unavailable;
  error.message = "the store is closed";
  return error;
}

}  // namespace

Result<ZipStore> ZipStore::Open(const std::filesystem::path& path, ZipOptions options) {
  Result<std::unique_ptr<Zip::DocumentFile>> file = Zip::DocumentFile::Open(path, options);
  if (!file) return std::move(file).error();
  return ZipStore(std::make_unique<Zip::Document>(*std::move(file)));
}

ZipStore::ZipStore(std::unique_ptr<Zip::Document> document) noexcept
    : m_document(std::move(document)) {}
ZipStore::ZipStore(ZipStore&& other) noexcept = default;
ZipStore& ZipStore::operator=(ZipStore&& other) noexcept {
  // The other's file may be this one's, so what this one has is written first.
  const ZipStore previous(std::move(*this));
  m_document = std::move(other.m_document);
  return *this;
}
// What couldn't be written is lost, as by the end of the process.
ZipStore::~ZipStore() {
  Quietly([this] { [[maybe_unused]] const Status ignored = Close(); });
}

Status ZipStore::Close() {
  if (!m_document) return {};
  Status status = m_document->WritePending();
  if (status) m_document.reset();
  return status;
}

Result<std::vector<Id>> ZipStore::Missing(std::span<const Id> ids) {
  if (!m_document) return Closed();
  return m_document->Missing(ids);
}

Status ZipStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  return m_document ? m_document->Read(ids, sink) : Closed();
}

Status ZipStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> ZipStore::Sizes(std::span<const Id> ids) {
  if (!m_document) return Closed();
  return m_document->Sizes(ids);
}

Status ZipStore::Write(std::span<const StoredObject> objects) {
  return m_document ? m_document->Write(objects) : Closed();
}

Result<std::vector<Head>> ZipStore::Heads() {
  if (!m_document) return Closed();
  return m_document->Heads();
}

Status ZipStore::MoveHeads(std::span<const HeadMove> moves) {
  return m_document ? m_document->MoveHeads(moves) : Closed();
}

Status ZipStore::List(const IdSink& sink) { return m_document ? m_document->List(sink) : Closed(); }

Result<RemovedObjects> ZipStore::RemoveUnmarked(const MarkObjects& mark) {
  if (!m_document) return Closed();
  return m_document->RemoveUnmarked(mark);
}

Result<std::optional<std::string>> ZipStore::Value(std::string_view name) {
  if (!m_document) return Closed();
  return m_document->Value(name);
}

Status ZipStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  return m_document ? m_document->SetValue(name, value) : Closed();
}

Status ZipStore::Replace(std::span<const StoredObject> objects) {
  return m_document ? m_document->Replace(objects) : Closed();
}

}  // namespace TalVcs::Kit
