#include <stores/postgres/internal/schema.h>
#include <stores/postgres/internal/session.h>

#include <algorithm>
#include <thread>

namespace TalVcs::Kit::Postgres {
namespace {

constexpr std::chrono::milliseconds kFirstPause{2};
constexpr std::chrono::milliseconds kLongestPause{500};

}  // namespace

Session::Session(std::string connection, std::string name, PostgresOptions options)
    : m_text(std::move(connection)), m_name(std::move(name)), m_options(options) {}

Status Session::Open() {
  return Repeat<Status>(Task::Open, [this]() -> Status {
    if (m_number >= 0) return {};
    Status status = OpenSchema(*m_connection, m_options.create);
    if (!status) return Explain(std::move(status).error(), Task::Open);
    Result<std::int64_t> number = OpenRepository(*m_connection, m_name, m_options.create);
    if (!number) return Explain(std::move(number).error(), Task::Open);
    m_number = *number;
    return {};
  });
}

Status Session::Connect(Task task) {
  m_mayRepeat = false;
  if (!IsLost()) return {};
  const Clock::time_point start = Clock::now();
  for (;;) {
    Status status = ConnectOnce();
    if (status) {
      m_pause = {};
      return status;
    }
    const bool is_final = status.error().code != ErrorCode::Unavailable;
    if (is_final || Clock::now() - start >= m_options.connectTimeout) {
      return Explain(std::move(status).error(), task);
    }
    Pause();
  }
}

Status Session::ConnectOnce() {
  m_connection.reset();
  Result<std::unique_ptr<Connection>> connection =
      Connection::Open(m_text, m_options.connectTimeout);
  if (!connection) return std::move(connection).error();
  // 0 would be no limit.
  const std::string timeout =
      std::to_string(std::max<std::int64_t>(m_options.busyTimeout.count(), 1));
  const Call call{Sql::SetUp, Parameters().AddText(timeout)};
  const bool is_first = m_number < 0;
  if (is_first) m_number = FindRepository(**connection, call, m_name).value_or(-1);
  if (m_number < 0 || !is_first) {
    Result<std::vector<Rows>> rows = (*connection)->Run({&call, 1});
    if (!rows) return std::move(rows).error();
  }
  m_connection = *std::move(connection);
  ++m_connections;
  return {};
}

bool Session::MayRepeat(Clock::time_point start) {
  const Clock::duration passed = Clock::now() - start;
  if (IsLost()) return passed < m_options.connectTimeout;
  if (!m_mayRepeat && !IsUndone(m_connection->State())) return false;
  if (passed >= m_options.busyTimeout) return false;
  Pause();
  return true;
}

void Session::Abandon() noexcept {
  if (m_connection && !m_connection->IsLost() && m_connection->IsInTransaction()) {
    const Call call{Sql::Rollback};
    [[maybe_unused]] const Result<std::vector<Rows>> ignored = m_connection->Run({&call, 1});
  }
  if (IsLost()) m_connection.reset();
}

/// Each pause is longer than the one before, by a part that chance decides.
void Session::Pause() {
  m_pause = std::clamp(m_pause * 2, kFirstPause, kLongestPause);
  std::uniform_int_distribution<std::int64_t> part(m_pause.count() / 2, m_pause.count());
  std::this_thread::sleep_for(std::chrono::milliseconds(part(m_random)));
}

Error Session::Explain(Error error, Task task) const {
  Error explained = Fail(error.code, task, error.message);
  explained.cause = std::move(error.cause);
  return explained;
}

Result<std::vector<Rows>> Session::Run(Task task, std::span<const Call> calls) {
  if (IsLost()) return Fail(ErrorCode::Unavailable, task, "the server can't be reached");
  Result<std::vector<Rows>> rows = m_connection->Run(calls);
  if (!rows) return Explain(std::move(rows).error(), task);
  return rows;
}

Status Session::Stream(Task task, const Call& call,
                       const std::function<void(const Rows& row)>& take) {
  if (IsLost()) return Fail(ErrorCode::Unavailable, task, "the server can't be reached");
  Status status = m_connection->Stream(call, take);
  return status ? status : Status(Explain(std::move(status).error(), task));
}

Status Session::Copy(Task task, Sql statement, const std::function<bool(std::string& rows)>& next) {
  if (IsLost()) return Fail(ErrorCode::Unavailable, task, "the server can't be reached");
  Status status = m_connection->Copy(statement, next);
  return status ? status : Status(Explain(std::move(status).error(), task));
}

Status Session::Listen() {
  if (m_listener && !m_listener->IsLost()) return {};
  m_listener.reset();
  Result<std::unique_ptr<Connection>> connection =
      Connection::Open(m_text, m_options.connectTimeout);
  if (!connection) return Explain(std::move(connection).error(), Task::Read);
  const Call call{Sql::Listen};
  Result<std::vector<Rows>> rows = (*connection)->Run({&call, 1});
  if (!rows) return Explain(std::move(rows).error(), Task::Read);
  m_listener = *std::move(connection);
  return {};
}

Status Session::WaitForNotice(std::chrono::milliseconds timeout) {
  Status status = m_listener->WaitForNotice(Channel(), timeout);
  return status ? status : Status(Explain(std::move(status).error(), Task::Read));
}

}  // namespace TalVcs::Kit::Postgres
