#include <stores/postgres/internal/postgres_error.h>
#include <stores/postgres/internal/repository.h>
#include <stores/postgres/postgres_store.h>

#include <utility>

namespace TalVcs::Kit {
namespace {

constexpr std::size_t kLongestName = 200;

Error Closed() {
  Error error;
  error.code = ErrorCode::Unavailable;
  error.message = "the store is closed";
  return error;
}

}  // namespace

Result<PostgresStore> PostgresStore::Open(const std::string& connection,
                                          std::string_view repository, PostgresOptions options) {
  if (repository.empty() || repository.size() > kLongestName) {
    return Postgres::MakeError(ErrorCode::BadName, Postgres::Task::Open, repository,
                               "its name has no byte or more than 200");
  }
  auto opened = std::make_unique<Postgres::Repository>(connection, repository, options);
  if (Status status = opened->Open(); !status) return std::move(status).error();
  return PostgresStore(std::move(opened));
}

PostgresStore::PostgresStore(std::unique_ptr<Postgres::Repository> repository) noexcept
    : m_repository(std::move(repository)) {}
PostgresStore::PostgresStore(PostgresStore&& other) noexcept = default;
PostgresStore& PostgresStore::operator=(PostgresStore&& other) noexcept = default;
PostgresStore::~PostgresStore() = default;

Status PostgresStore::Settle() {
  return m_repository ? m_repository->Writes().Wait() : Status(Closed());
}

Status PostgresStore::BeginWrite(std::vector<StoredObject> objects) {
  return m_repository ? m_repository->Writes().Begin(std::move(objects)) : Closed();
}

Status PostgresStore::FinishWrites() {
  return m_repository ? m_repository->Writes().Finish() : Status(Closed());
}

void PostgresStore::DropWrites() noexcept {
  if (m_repository) m_repository->Writes().Drop();
}

Result<std::vector<Id>> PostgresStore::Missing(std::span<const Id> ids) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->Objects().Missing(ids);
}

Status PostgresStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  Status status = Settle();
  return status ? m_repository->Objects().Read(ids, sink) : status;
}

Status PostgresStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  Status status = Settle();
  return status ? m_repository->Objects().ReadHistory(id, most, sink) : status;
}

Result<std::vector<std::optional<std::uint64_t>>> PostgresStore::Sizes(std::span<const Id> ids) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->Objects().Sizes(ids);
}

Status PostgresStore::Write(std::span<const StoredObject> objects) {
  Status status = Settle();
  return status ? m_repository->Objects().Write(objects) : status;
}

Result<std::vector<Head>> PostgresStore::Heads() {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->Heads();
}

Status PostgresStore::MoveHeads(std::span<const HeadMove> moves) {
  Status status = Settle();
  return status ? m_repository->MoveHeads(moves) : status;
}

Status PostgresStore::List(const IdSink& sink) {
  Status status = Settle();
  return status ? m_repository->List(sink) : status;
}

Result<RemovedObjects> PostgresStore::RemoveUnmarked(const MarkObjects& mark) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->RemoveUnmarked(mark);
}

Result<std::optional<std::string>> PostgresStore::Value(std::string_view name) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->Value(name);
}

Status PostgresStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  Status status = Settle();
  return status ? m_repository->SetValue(name, value) : status;
}

Result<std::vector<Head>> PostgresStore::WaitForHeads(std::span<const Head> seen,
                                                      std::chrono::milliseconds timeout) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->WaitForHeads(seen, timeout);
}

Result<RemovedObjects> PostgresStore::RemoveGradually(const MarkObjects& mark,
                                                      std::chrono::milliseconds grace) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->RemoveGradually(mark, grace);
}

Result<StoreOpening> PostgresStore::ReadOpening(std::string_view branch, std::string_view valueName,
                                                std::string_view otherwise) {
  if (Status status = Settle(); !status) return std::move(status).error();
  return m_repository->ReadOpening(branch, valueName, otherwise);
}

Status PostgresStore::Replace(std::span<const StoredObject> objects) {
  Status status = Settle();
  return status ? m_repository->Objects().Replace(objects) : status;
}

}  // namespace TalVcs::Kit
