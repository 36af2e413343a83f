#pragma once

#include <libpq-fe.h>

#include <functional>
#include <memory>
#include <string>

/// The time that work takes on a server of this machine.
namespace TalVcs::Bench {

/// How long some work took.
struct WorkTime {
  double seconds = 0;        ///< From its beginning to its end.
  double clientSeconds = 0;  ///< Of the processors, in this process.
  double serverSeconds = 0;  ///< Of the processors, in all processes of the server.

  double ProcessorSeconds() const { return clientSeconds + serverSeconds; }
};

/// Measures work of this process and of a PostgreSQL server that runs on the same machine. The
/// server's part is counted in hundredths of a second.
class WorkTimer {
 public:
  /// Connects; a failure ends the program.
  explicit WorkTimer(const std::string& connection);

  WorkTime Measure(const std::function<void()>& work);

 private:
  double ServerSeconds();

  std::unique_ptr<PGconn, decltype(&PQfinish)> m_server;
};

}  // namespace TalVcs::Bench
