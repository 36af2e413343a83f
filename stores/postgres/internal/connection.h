#pragma once

#include <kit/text/result.h>
#include <libpq-fe.h>
#include <stores/postgres/internal/parameters.h>
#include <stores/postgres/internal/rows.h>
#include <stores/postgres/internal/statements.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// A statement with the values of its parameters.
struct Call {
  Sql statement;
  Parameters parameters = {};
};

/// A connection to a server. Errors say what the server said; the caller says what it was for.
///
/// A batch of statements goes to the server and comes back in one round trip, with the preparation
/// of those that are new to the connection. The server does all of a batch or, up to the next
/// COMMIT, nothing.
class Connection {
 public:
  /// Connects as the text says. Fails with `Unavailable` after the timeout.
  static Result<std::unique_ptr<Connection>> Open(const std::string& text,
                                                  std::chrono::milliseconds timeout);

  /// Runs the calls and returns a result for each.
  Result<std::vector<Rows>> Run(std::span<const Call> calls);

  /// Runs a call and passes its rows one by one, while the server goes on. If `take` throws, the
  /// connection is lost.
  Status Stream(const Call& call, const std::function<void(const Rows& row)>& take);

  /// Copies rows into a table: `statement` is a COPY in the binary form, `next` appends some rows
  /// to `rows`, and returns false if there are no more. The server works while `next` does. If it
  /// throws, the connection is lost. Three round trips.
  Status Copy(Sql statement, const std::function<bool(std::string& rows)>& next);

  /// Runs texts without parameters, which must be the store's own.
  Status RunTexts(std::span<const std::string> texts);

  /// Waits until the server notifies of `text`, or the timeout has passed.
  Status WaitForNotice(const std::string& text, std::chrono::milliseconds timeout);

  /// Returns the code of the server's last failure; empty if there was none since the last batch
  /// began, or if the connection is lost.
  const std::string& State() const noexcept { return m_state; }

  bool IsLost() const noexcept { return m_isLost || PQstatus(m_connection.get()) != CONNECTION_OK; }
  /// True between BEGIN and COMMIT, and after a failure in between.
  bool IsInTransaction() const noexcept {
    return PQtransactionStatus(m_connection.get()) != PQTRANS_IDLE;
  }

 private:
  struct Finish {
    void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
  };

  explicit Connection(PGconn* connection) noexcept : m_connection(connection) {}

  // What was sent: a statement to be run, or its preparation.
  struct Sent {
    Sql statement;
    bool isPreparation;
  };

  Status Wait(std::chrono::milliseconds timeout);
  Status Send(std::span<const Call> calls);
  bool SendOne(const Call& call);
  // Take the results of what was sent, up to the end of the batch.
  Result<std::vector<Rows>> Receive();
  void ReceiveUntilNull();
  // Takes the results up to the end of a statement that isn't in a batch.
  Status ReceiveLast();
  void ReceiveSync();
  // Waits until the server has sent something, and returns false at `end`.
  bool WaitForInput(std::chrono::steady_clock::time_point end, short events) const;
  Error Lost();
  Error FailureOf(const Rows& rows);

  std::unique_ptr<PGconn, Finish> m_connection;
  std::array<bool, kStatements> m_isPrepared{};
  std::vector<Sent> m_sent;
  std::string m_state;
  bool m_isLost = false;
};

}  // namespace TalVcs::Kit::Postgres
