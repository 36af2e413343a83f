#include <bench/measure.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace TalVcs::Bench {
namespace {

/// Returns, in bytes, a figure of the process that the kernel reports in KiB.
double ReadStatus(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(key)) return std::strtod(line.c_str() + key.size(), nullptr) * 1024;
  }
  return 0;
}

/// Makes the peak memory of the process start again at what it has now.
void ResetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

double HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

timespec Now() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return now;
}

}  // namespace

Section::Section() {
  malloc_trim(0);
  ResetPeak();
  m_startResident = ReadStatus("VmRSS:");
  m_startHeap = HeapInUse();
  m_start = Now();
}

void Section::Stop(benchmark::State& state) {
  const timespec end = Now();
  m_heap = HeapInUse() - m_startHeap;
  m_peak = ReadStatus("VmHWM:") - m_startResident;
  state.SetIterationTime(static_cast<double>(end.tv_sec - m_start.tv_sec) +
                         static_cast<double>(end.tv_nsec - m_start.tv_nsec) * 1e-9);
}

void Section::Report(benchmark::State& state, std::uint64_t operations, std::uint64_t objects,
                     std::uint64_t hashedBytes) const {
  using benchmark::Counter;
  state.counters["operations"] = static_cast<double>(operations);
  state.counters["time_per_op"] = Counter(static_cast<double>(operations),
                                          Counter::kIsIterationInvariantRate | Counter::kInvert);
  if (objects != 0) {
    state.counters["objects"] = static_cast<double>(objects);
    state.counters["heap_per_object"] = m_heap / static_cast<double>(objects);
    state.counters["peak_MiB"] = m_peak / (1 << 20);
  }
  if (hashedBytes != 0) state.counters["hashed_bytes"] = static_cast<double>(hashedBytes);
}

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "wrong result: %s\n", what);
  std::exit(1);
}

}  // namespace TalVcs::Bench
