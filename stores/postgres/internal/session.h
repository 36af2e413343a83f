#pragma once

#include <kit/text/result.h>
#include <stores/postgres/internal/connection.h>
#include <stores/postgres/internal/postgres_error.h>
#include <stores/postgres/postgres_store.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// The connection to one repository, which is made anew when it is lost.
class Session {
 public:
  Session(std::string connection, std::string name, PostgresOptions options);

  /// Connects and finds the repository.
  Status Open();

  /// Calls `attempt`, and again after a pause if the connection was lost or the server undid it
  /// because of others. Leaves no transaction open. Inside another attempt it calls it once.
  template <class AnyResult>
  AnyResult Repeat(Task task, const std::function<AnyResult()>& attempt) {
    if (m_isInAttempt) return attempt();
    const Attempts attempts(*this);
    for (;;) {
      if (Status status = Connect(task); !status) return std::move(status).error();
      AnyResult result = attempt();
      if (result.ok()) return result;
      const bool again = MayRepeat(attempts.start);
      Abandon();
      if (!again) return result;
    }
  }

  /// Runs a batch inside an attempt.
  Result<std::vector<Rows>> Run(Task task, std::span<const Call> calls);
  Result<std::vector<Rows>> Run(Task task, const std::vector<Call>& calls) {
    return Run(task, std::span<const Call>(calls));
  }
  /// Passes the rows of a call inside an attempt.
  Status Stream(Task task, const Call& call, const std::function<void(const Rows& row)>& take);

  /// Copies rows inside an attempt.
  Status Copy(Task task, Sql statement, const std::function<bool(std::string& rows)>& next);

  /// Lets the next failure of this attempt be followed by another attempt.
  void AllowRepeat() noexcept { m_mayRepeat = true; }

  /// Returns the first parameter of most statements.
  Parameters Number() const { return Parameters().Add(m_number); }
  /// Returns the number itself.
  std::int64_t RepositoryNumber() const noexcept { return m_number; }
  /// Returns how often a connection was made. What a server has lost in a crash, it can have lost
  /// only in between.
  std::uint64_t Connections() const noexcept { return m_connections; }

  /// Returns what a notice of moved heads of this repository says.
  std::string Channel() const { return std::to_string(m_number); }
  /// Waits for such a notice by a connection of its own, which lasts until it is lost.
  Status Listen();
  Status WaitForNotice(std::chrono::milliseconds timeout);

  bool IsLost() const noexcept { return !m_connection || m_connection->IsLost(); }
  std::string State() const { return m_connection ? m_connection->State() : std::string(); }

  Error Fail(ErrorCode code, Task task, std::string_view reason) const {
    return MakeError(code, task, m_name, reason);
  }
  /// Returns the error of rows that no store writes.
  Error Damage() const {
    return Fail(ErrorCode::Damaged, Task::Read, "a row isn't one that a store writes");
  }

 private:
  using Clock = std::chrono::steady_clock;

  // Ends the attempts, also when a callback of the caller throws.
  struct Attempts {
    explicit Attempts(Session& owner) : session(owner) { session.m_isInAttempt = true; }
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;
    ~Attempts() {
      session.Abandon();
      session.m_isInAttempt = false;
    }
    Session& session;
    Clock::time_point start = Clock::now();
  };

  Status Connect(Task task);
  Status ConnectOnce();
  bool MayRepeat(Clock::time_point start);
  // Rolls an open transaction back, and gives a lost connection up.
  void Abandon() noexcept;
  void Pause();
  Error Explain(Error error, Task task) const;

  std::string m_text;
  std::string m_name;
  PostgresOptions m_options;
  std::unique_ptr<Connection> m_connection;
  std::unique_ptr<Connection> m_listener;
  std::int64_t m_number = -1;
  std::uint64_t m_connections = 0;
  bool m_isInAttempt = false;
  bool m_mayRepeat = false;
  std::chrono::milliseconds m_pause{0};
  std::minstd_rand m_random{std::random_device()()};
};

}  // namespace TalVcs::Kit::Postgres
