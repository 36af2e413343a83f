#include <bench/processor_time.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace TalVcs::Bench {

namespace {

double ClientSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Returns the fields of /proc/PID/stat after the name of the program, which may have blanks.
std::vector<std::string> FieldsOf(const std::string& pid) {
  std::ifstream file("/proc/" + pid + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  return {std::istream_iterator<std::string>(fields), {}};
}

}  // namespace

WorkTimer::WorkTimer(const std::string& connection)
    : m_server(PQconnectdb(connection.c_str()), &PQfinish) {
  if (PQstatus(m_server.get()) == CONNECTION_OK) return;
  std::fprintf(stderr, "%s\n", PQerrorMessage(m_server.get()));
  std::exit(1);
}

/// Sums up the processes that run, and those that have ended, which their parent counts.
double WorkTimer::ServerSeconds() {
  constexpr std::size_t kParent = 1;
  constexpr std::size_t kTimes = 11;  // of the process: user, system; then of its ended children
  PGresult* const pids = PQexec(m_server.get(), "SELECT pid FROM pg_stat_activity");
  std::uint64_t ticks = 0;
  std::string parent;
  for (int row = 0; row < PQntuples(pids); ++row) {
    const std::vector<std::string> fields = FieldsOf(PQgetvalue(pids, row, 0));
    if (fields.size() < kTimes + 4) continue;
    ticks += std::stoull(fields[kTimes]) + std::stoull(fields[kTimes + 1]);
    parent = fields[kParent];
  }
  PQclear(pids);
  const std::vector<std::string> fields = FieldsOf(parent);
  for (std::size_t index = kTimes; index < kTimes + 4 && index < fields.size(); ++index) {
    ticks += std::stoull(fields[index]);
  }
  return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

WorkTime WorkTimer::Measure(const std::function<void()>& work) {
  const double server = ServerSeconds();
  const double client = ClientSeconds();
  const auto start = std::chrono::steady_clock::now();
  work();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  return {seconds.count(), ClientSeconds() - client, ServerSeconds() - server};
}

}  // namespace TalVcs::Bench
