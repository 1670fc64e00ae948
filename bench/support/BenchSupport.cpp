#include "support/BenchSupport.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace vorna::bench {

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::vector<double> timeRuns(int runs, const std::function<void()>& body) {
  std::vector<double> samples;
  samples.reserve(static_cast<size_t>(runs));
  for (int i = 0; i < runs; ++i) {
    auto start = Clock::now();
    body();
    samples.push_back(secondsSince(start));
  }
  return samples;
}

double percentile(std::vector<double> samples, double fraction) {
  if (samples.empty()) {
    return 0;
  }
  std::sort(samples.begin(), samples.end());
  auto index = static_cast<size_t>(std::ceil(fraction * static_cast<double>(samples.size()))) ;
  index = index == 0 ? 0 : index - 1;
  return samples[std::min(index, samples.size() - 1)];
}

double median(std::vector<double> samples) {
  if (samples.empty()) {
    return 0;
  }
  std::sort(samples.begin(), samples.end());
  size_t n = samples.size();
  return n % 2 == 1 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
}

double timeCommand(const std::string& command) {
  auto start = Clock::now();
  int status = std::system((command + " >/dev/null 2>&1").c_str());
  double elapsed = secondsSince(start);
  return status == 0 ? elapsed : -1;
}

bool haveProgram(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

void printBench(const std::string& name, double value) {
  std::printf("BENCH %s %.6g\n", name.c_str(), value);
  std::fflush(stdout);
}

void printRow(const std::string& label, const std::string& value) {
  std::printf("  %-48s %s\n", label.c_str(), value.c_str());
  std::fflush(stdout);
}

ScratchDir::ScratchDir(const std::string& tag) {
  const char* base = std::getenv("VORNA_BENCH_DIR");
  if (base == nullptr || *base == '\0') {
    base = std::getenv("TMPDIR");
  }
  std::string pattern =
      std::string(base && *base ? base : "/tmp") + "/vorna-bench-" + tag + "-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::exit(1);
  }
  path_ = pattern;
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      ::chmod(it->path().c_str(), 0755);
    }
  }
  std::filesystem::remove_all(path_, ignored);
}

double peakResidentMiB() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace vorna::bench

namespace vorna::bench {
namespace {

class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  explicit CollectingReporter(std::map<std::string, double>& out) : out_(out) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.iterations > 0) {
        out_[run.benchmark_name()] =
            run.real_accumulated_time / static_cast<double>(run.iterations);
      }
    }
  }

 private:
  std::map<std::string, double>& out_;
};

}  // namespace

std::map<std::string, double> runRegisteredBenchmarks(int argc, char** argv) {
  std::map<std::string, double> results;
  benchmark::Initialize(&argc, argv);
  CollectingReporter reporter(results);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return results;
}

}  // namespace vorna::bench
