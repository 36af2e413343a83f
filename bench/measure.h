#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace TalVcs::Bench {

/// The part of a benchmark's iteration that counts: processor time, live heap and peak memory from
/// its construction to `Stop`.
///
/// Every workload runs in one thread and touches no disk, so that processor time is what it takes
/// on an idle machine; unlike elapsed time it stays about the same on a busy one.
class Section {
 public:
  Section();

  /// Ends the section, and hands the time to `state` as that of one iteration.
  void Stop(benchmark::State& state);

  /// Reports what one operation and one object cost: `operations` were done, which stored `objects`
  /// objects and had to hash `hashedBytes` bytes. To be called after `Stop`; 0 leaves a figure out.
  void Report(benchmark::State& state, std::uint64_t operations, std::uint64_t objects = 0,
              std::uint64_t hashedBytes = 0) const;

 private:
  double m_startHeap;
  double m_startResident;
  double m_heap = 0;
  double m_peak = 0;
  timespec m_start;
};

/// Ends the program with a message unless `holds`: a workload whose result is wrong has no speed.
void Require(bool holds, const char* what);

}  // namespace TalVcs::Bench
