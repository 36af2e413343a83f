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

Result<std::vector<Id>> PostgresStore::Missing(std::span<const Id> ids) {
  if (!m_repository) return Closed();
  return m_repository->Objects().Missing(ids);
}

Status PostgresStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  return m_repository ? m_repository->Objects().Read(ids, sink) : Closed();
}

Status PostgresStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return m_repository ? m_repository->Objects().ReadHistory(id, most, sink) : Closed();
}

Result<std::vector<std::optional<std::uint64_t>>> PostgresStore::Sizes(std::span<const Id> ids) {
  if (!m_repository) return Closed();
  return m_repository->Objects().Sizes(ids);
}

Status PostgresStore::Write(std::span<const StoredObject> objects) {
  return m_repository ? m_repository->Objects().Write(objects) : Closed();
}

Result<std::vector<Head>> PostgresStore::Heads() {
  if (!m_repository) return Closed();
  return m_repository->Heads();
}

Status PostgresStore::MoveHeads(std::span<const HeadMove> moves) {
  return m_repository ? m_repository->MoveHeads(moves) : Closed();
}

Status PostgresStore::List(const IdSink& sink) {
  return m_repository ? m_repository->List(sink) : Closed();
}

Result<RemovedObjects> PostgresStore::RemoveUnmarked(const MarkObjects& mark) {
  if (!m_repository) return Closed();
  return m_repository->RemoveUnmarked(mark);
}

Result<std::optional<std::string>> PostgresStore::Value(std::string_view name) {
  if (!m_repository) return Closed();
  return m_repository->Value(name);
}

Status PostgresStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  return m_repository ? m_repository->SetValue(name, value) : Closed();
}

Result<std::vector<Head>> PostgresStore::WaitForHeads(std::span<const Head> seen,
                                                      std::chrono::milliseconds timeout) {
  if (!m_repository) return Closed();
  return m_repository->WaitForHeads(seen, timeout);
}

Result<RemovedObjects> PostgresStore::RemoveGradually(const MarkObjects& mark,
                                                      std::chrono::milliseconds grace) {
  if (!m_repository) return Closed();
  return m_repository->RemoveGradually(mark, grace);
}

Result<StoreOpening> PostgresStore::ReadOpening(std::string_view branch, std::string_view valueName,
                                                std::string_view otherwise) {
  if (!m_repository) return Closed();
  return m_repository->ReadOpening(branch, valueName, otherwise);
}

Status PostgresStore::Replace(std::span<const StoredObject> objects) {
  return m_repository ? m_repository->Objects().Replace(objects) : Closed();
}

}  // namespace TalVcs::Kit
