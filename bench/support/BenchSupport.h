#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

// Helpers shared by the benchmark programs. Each program prints a table for
// people and one line "BENCH <name> <value>" per headline figure for scripts.
namespace vorna::bench {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start);

// Runs `body` `runs` times and returns each run's wall time in seconds.
std::vector<double> timeRuns(int runs, const std::function<void()>& body);

double median(std::vector<double> samples);
double percentile(std::vector<double> samples, double fraction);  // 0.99 for p99

// Runs a shell command with its output discarded; returns its wall time in
// seconds, or a negative value when it could not run or failed.
double timeCommand(const std::string& command);
// True when a program of that name is on PATH.
bool haveProgram(const std::string& name);

// Prints "BENCH <name> <value>" (value with up to 6 significant digits).
void printBench(const std::string& name, double value);
// Prints one human-readable table row.
void printRow(const std::string& label, const std::string& value);

// A scratch folder for a benchmark under $VORNA_BENCH_DIR, $TMPDIR or /tmp;
// removed with everything in it when the object goes.
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& tag);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Peak resident memory of this process so far, in MiB.
double peakResidentMiB();

}  // namespace vorna::bench

#include <benchmark/benchmark.h>

#include <map>

namespace vorna::bench {

// Runs every registered Google Benchmark (console output as usual) and returns
// the real time per iteration, in seconds, of each run by its reported name
// (with repetitions, the "_median" aggregate is among them).
std::map<std::string, double> runRegisteredBenchmarks(int argc, char** argv);

}  // namespace vorna::bench
