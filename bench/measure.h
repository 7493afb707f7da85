// Timing and comparing, for every benchmark.
#ifndef KESTRUNE_BENCH_MEASURE_H
#define KESTRUNE_BENCH_MEASURE_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace kestrune::bench {

// A benchmark of something that failed tells nothing.
inline void OrStop(bool fine) {
  if (!fine) std::abort();
}

// Processor time: what other programs on the machine take meanwhile does not count, nor does waiting for the
// disk, which both sides of a comparison do alike.
inline double ProcessorSeconds() {
  std::timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Work>
double Seconds(Work&& work) {
  const double begin = ProcessorSeconds();
  work();
  return ProcessorSeconds() - begin;
}

// The tests only try every benchmark: one turn, small keys.
inline bool OnlyTried() {
  return std::getenv("KESTRUNE_BENCH_ONLY_TRIED") != nullptr;
}
inline int Turns(int usual) {
  return OnlyTried() ? 1 : usual;
}

// The machine's noise only ever adds.
inline double Least(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

// Times the operation and its yardstick in turns. Counters: bare_ms, the yardstick's least time; ratio, the
// operation's least time over that; ns_per_unit. The yardstick's time counts `scale` times: by how many times
// its work is smaller.
template <class Operation, class Yardstick>
void Compare(benchmark::State& state, double units, Operation&& operation, Yardstick&& yardstick,
             double scale = 1) {
  std::vector<double> own, bare;
  for (auto _ : state) {
    own.push_back(Seconds(operation));
    bare.push_back(scale * Seconds(yardstick));
    state.SetIterationTime(own.back());
  }
  state.counters["bare_ms"] = Least(bare) * 1e3;
  state.counters["ratio"] = Least(own) / Least(bare);
  state.counters["ns_per_unit"] = Least(own) * 1e9 / units;
}

// A line of /proc/self/status that counts memory ("VmRSS:", or "VmHWM:" for the most so far), in bytes.
inline double StatusBytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kibibytes = 0;
    if (word == field && status >> kibibytes) return kibibytes * 1024;
  }
  return 0;
}

// By how many bytes this process grows at most during the work.
template <class Work>
double PeakGrowth(Work&& work) {
  std::ofstream("/proc/self/clear_refs") << "5";  // the most so far becomes what is held now
  const double before = StatusBytes("VmRSS:");
  work();
  return StatusBytes("VmHWM:") - before;
}

}  // namespace kestrune::bench

#endif
