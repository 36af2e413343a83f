#include <poll.h>
#include <stores/postgres/internal/connection.h>
#include <stores/postgres/internal/postgres_error.h>

#include <algorithm>
#include <cctype>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

using Clock = std::chrono::steady_clock;

std::string NameOf(Sql statement) {
  return "talvcs" + std::to_string(static_cast<unsigned>(statement));
}

/// Finds the code in the text of a connection that failed; its words are in the server's language.
std::string StateIn(std::string_view text) {
  constexpr std::size_t kLength = 5;
  std::string state;
  for (std::size_t at = text.find(":  "); at != text.npos; at = text.find(":  ", at + 1)) {
    const std::string_view code = text.substr(at + 3, kLength + 1);
    if (code.size() != kLength + 1 || code.back() != ':') continue;
    const bool is_code = std::all_of(code.begin(), code.end() - 1, [](unsigned char character) {
      return std::isdigit(character) != 0 || std::isupper(character) != 0;
    });
    if (is_code) state = code.substr(0, kLength);
  }
  return state;
}

/// Returns why libpq can't read a connection string; empty if it can.
std::string ProblemOf(const std::string& text) {
  const bool is_uri = text.starts_with("postgresql://") || text.starts_with("postgres://");
  // Any other text is the name of a database.
  if (!is_uri && text.find('=') == text.npos) return {};
  char* message = nullptr;
  PQconninfoOption* const options = PQconninfoParse(text.c_str(), &message);
  if (options == nullptr && message == nullptr) throw std::bad_alloc();
  const std::string problem = message == nullptr ? "" : message;
  PQconninfoFree(options);
  PQfreemem(message);
  // The message repeats a part of the text, which may be the password.
  const bool may_have_password = text.find("://") != text.npos || text.find('@') != text.npos ||
                                 text.find("password") != text.npos;
  return problem.empty() || !may_have_password ? problem : "not shown, as it may show a password";
}

/// A result of a batch after its first failure is one too.
bool IsFailure(const PGresult* result) noexcept {
  const ExecStatusType status = PQresultStatus(result);
  return status == PGRES_FATAL_ERROR || status == PGRES_BAD_RESPONSE ||
         status == PGRES_PIPELINE_ABORTED;
}

}  // namespace

Result<std::unique_ptr<Connection>> Connection::Open(const std::string& text,
                                                     std::chrono::milliseconds timeout) {
  if (const std::string problem = ProblemOf(text); !problem.empty()) {
    Error error = ErrorOf({}, problem);
    error.code = ErrorCode::BadName;
    error.message = "its connection string can't be read";
    return error;
  }
  const char* const names[] = {"dbname", "client_encoding", "fallback_application_name", nullptr};
  const char* const values[] = {text.c_str(), "UTF8", "talvcs", nullptr};
  PGconn* const raw = PQconnectStartParams(names, values, 1);
  if (raw == nullptr) throw std::bad_alloc();
  std::unique_ptr<Connection> connection(new Connection(raw));
  // The messages then have the code of the failure.
  PQsetErrorVerbosity(raw, PQERRORS_VERBOSE);
  if (Status status = connection->Wait(timeout); !status) return std::move(status).error();
  PQsetErrorVerbosity(raw, PQERRORS_DEFAULT);
  // Notices would go to the standard error stream.
  PQsetNoticeReceiver(
      raw, [](void*, const PGresult*) {}, nullptr);
  if (PQenterPipelineMode(raw) != 1) return connection->Lost();
  return connection;
}

bool Connection::WaitForInput(Clock::time_point end, short events) const {
  constexpr std::int64_t kLongest = 60000;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return false;
    struct pollfd wait = {PQsocket(m_connection.get()), events, 0};
    if (::poll(&wait, 1, static_cast<int>(std::min<std::int64_t>(left, kLongest))) > 0) return true;
  }
}

Status Connection::Wait(std::chrono::milliseconds timeout) {
  const Clock::time_point end = Clock::now() + timeout;
  PostgresPollingStatusType next = PGRES_POLLING_WRITING;
  while (PQstatus(m_connection.get()) != CONNECTION_BAD) {
    const bool is_ready = WaitForInput(end, next == PGRES_POLLING_READING ? POLLIN : POLLOUT);
    if (!is_ready) return ErrorOf({}, "no answer in time");
    next = PQconnectPoll(m_connection.get());
    if (next == PGRES_POLLING_OK) return {};
    if (next == PGRES_POLLING_FAILED) break;
  }
  const std::string text = PQerrorMessage(m_connection.get());
  m_state = StateIn(text);
  return ErrorOf(m_state, text);
}

Error Connection::Lost() {
  m_isLost = true;
  m_state.clear();
  return ErrorOf({}, PQerrorMessage(m_connection.get()));
}

Error Connection::FailureOf(const Rows& rows) {
  const char* const state = PQresultErrorField(rows.Raw(), PG_DIAG_SQLSTATE);
  if (state == nullptr) return Lost();
  m_state = state;
  if (EndsConnection(m_state)) m_isLost = true;
  const char* const text = PQresultErrorField(rows.Raw(), PG_DIAG_MESSAGE_PRIMARY);
  return ErrorOf(m_state, m_state + ": " + (text == nullptr ? "" : text));
}

bool Connection::SendOne(const Call& call) {
  const std::string name = NameOf(call.statement);
  const Parameters& parameters = call.parameters;
  bool& is_prepared = m_isPrepared[static_cast<std::size_t>(call.statement)];
  if (!is_prepared) {
    // From here on, as this batch may have it again. If the preparation fails, so does the batch.
    is_prepared = true;
    m_sent.push_back({call.statement, true});
    if (PQsendPrepare(m_connection.get(), name.c_str(), TextOf(call.statement), parameters.Count(),
                      parameters.Types()) != 1) {
      return false;
    }
  }
  m_sent.push_back({call.statement, false});
  return PQsendQueryPrepared(m_connection.get(), name.c_str(), parameters.Count(),
                             parameters.Addresses().data(), parameters.Sizes().data(),
                             parameters.Formats().data(), 1) == 1;
}

Status Connection::Send(std::span<const Call> calls) {
  m_state.clear();
  m_sent.clear();
  for (const Call& call : calls) {
    if (!SendOne(call)) return Lost();
  }
  if (PQpipelineSync(m_connection.get()) != 1) return Lost();
  return {};
}

void Connection::ReceiveUntilNull() {
  while (!m_isLost) {
    const Rows rows(PQgetResult(m_connection.get()));
    if (rows.Raw() == nullptr) return;
    if (PQresultStatus(rows.Raw()) == PGRES_FATAL_ERROR) m_isLost = true;
  }
}

void Connection::ReceiveSync() {
  const Rows sync(PQgetResult(m_connection.get()));
  if (PQresultStatus(sync.Raw()) != PGRES_PIPELINE_SYNC) m_isLost = true;
}

Result<std::vector<Rows>> Connection::Receive() {
  std::vector<Rows> results;
  std::optional<Error> error;
  for (const Sent& sent : m_sent) {
    if (m_isLost) break;
    Rows rows(PQgetResult(m_connection.get()));
    if (rows.Raw() == nullptr) return Lost();
    if (IsFailure(rows.Raw())) {
      if (sent.isPreparation) m_isPrepared[static_cast<std::size_t>(sent.statement)] = false;
      // The first failure is the reason of the others.
      if (!error) error = FailureOf(rows);
    } else if (!sent.isPreparation) {
      results.push_back(std::move(rows));
    }
    ReceiveUntilNull();
  }
  if (!m_isLost) ReceiveSync();
  if (IsLost() && !error) error = Lost();
  if (error) return *std::move(error);
  return results;
}

Result<std::vector<Rows>> Connection::Run(std::span<const Call> calls) {
  if (Status status = Send(calls); !status) return std::move(status).error();
  return Receive();
}

Status Connection::Stream(const Call& call, const std::function<void(const Rows& row)>& take) {
  if (Status status = Send({&call, 1}); !status) return status;
  // Until all has come, for the case that `take` throws.
  m_isLost = true;
  std::optional<Error> error;
  for (const Sent& sent : m_sent) {
    if (!sent.isPreparation) PQsetSingleRowMode(m_connection.get());
    for (;;) {
      const Rows rows(PQgetResult(m_connection.get()));
      if (rows.Raw() == nullptr) break;
      if (PQresultStatus(rows.Raw()) == PGRES_SINGLE_TUPLE) {
        take(rows);
      } else if (IsFailure(rows.Raw()) && !error) {
        error = FailureOf(rows);
        if (m_state.empty() || EndsConnection(m_state)) return *std::move(error);
        if (sent.isPreparation) m_isPrepared[static_cast<std::size_t>(sent.statement)] = false;
      }
    }
  }
  m_isLost = false;
  ReceiveSync();
  if (error) return *std::move(error);
  return IsLost() ? Status(Lost()) : Status();
}

// In a batch there can be no COPY.
Status Connection::Copy(Sql statement, const std::function<bool(std::string& rows)>& next) {
  constexpr std::string_view kBeginning("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
  constexpr std::string_view kEnd("\377\377", 2);
  PGconn* const connection = m_connection.get();
  m_state.clear();
  if (PQexitPipelineMode(connection) != 1) return Lost();
  // Until all was sent, for the case that `next` throws.
  m_isLost = true;
  if (PQsendQuery(connection, TextOf(statement)) != 1) return Lost();
  const Rows begun(PQgetResult(connection));
  if (PQresultStatus(begun.Raw()) == PGRES_COPY_IN) {
    std::string rows(kBeginning);
    for (bool goes_on = true; goes_on; rows.clear()) {
      goes_on = next(rows);
      if (!goes_on) rows += kEnd;
      if (PQputCopyData(connection, rows.data(), static_cast<int>(rows.size())) != 1) return Lost();
    }
    if (PQputCopyEnd(connection, nullptr) != 1) return Lost();
  }
  m_isLost = false;
  Status status = IsFailure(begun.Raw()) ? Status(FailureOf(begun)) : Status();
  Status last = ReceiveLast();
  if (status) status = std::move(last);
  if (!IsLost() && PQenterPipelineMode(connection) != 1) return Lost();
  return status;
}

Status Connection::ReceiveLast() {
  Status status;
  while (!m_isLost) {
    const Rows rows(PQgetResult(m_connection.get()));
    if (rows.Raw() == nullptr) break;
    if (IsFailure(rows.Raw()) && status) status = FailureOf(rows);
  }
  return status && IsLost() ? Status(Lost()) : status;
}

Status Connection::RunTexts(std::span<const std::string> texts) {
  m_state.clear();
  m_sent.clear();
  for (const std::string& text : texts) {
    m_sent.push_back({Sql::Count, false});
    if (PQsendQueryParams(m_connection.get(), text.c_str(), 0, nullptr, nullptr, nullptr, nullptr,
                          1) != 1) {
      return Lost();
    }
  }
  if (PQpipelineSync(m_connection.get()) != 1) return Lost();
  const Result<std::vector<Rows>> results = Receive();
  return results ? Status() : Status(results.error());
}

Status Connection::WaitForNotice(const std::string& text, std::chrono::milliseconds timeout) {
  const Clock::time_point end = Clock::now() + timeout;
  for (;;) {
    if (PQconsumeInput(m_connection.get()) != 1) return Lost();
    bool is_noticed = false;
    while (PGnotify* const notice = PQnotifies(m_connection.get())) {
      is_noticed = is_noticed || text == notice->extra;
      PQfreemem(notice);
    }
    if (is_noticed || !WaitForInput(end, POLLIN)) return {};
  }
}

}  // namespace TalVcs::Kit::Postgres
