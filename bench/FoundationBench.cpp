// Fingerprinting and durable writes against the tools and bare calls a user
// could reach for instead, measured in the same run.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "storage/DurableChanges.h"
#include "storage/Fingerprint.h"
#include "support/BenchSupport.h"

namespace {

using namespace vorna;
using bench::printBench;
using bench::printRow;

constexpr size_t kHashFileSize = 256u << 20;
std::string gHashFile;

void BM_FingerprintFile(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(storage::fingerprintFile(gHashFile));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kHashFileSize));
}
BENCHMARK(BM_FingerprintFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

void writeHashFile(const std::string& path) {
  std::mt19937_64 random(42);
  std::string chunk(1 << 20, '\0');
  FILE* out = std::fopen(path.c_str(), "wb");
  for (size_t written = 0; written < kHashFileSize; written += chunk.size()) {
    for (size_t i = 0; i < chunk.size(); i += 8) {
      uint64_t value = random();
      std::memcpy(chunk.data() + i, &value, 8);
    }
    std::fwrite(chunk.data(), 1, chunk.size(), out);
  }
  std::fclose(out);
}

double medianCommand(const std::string& command, int runs) {
  std::vector<double> samples;
  for (int i = 0; i < runs; ++i) {
    double t = bench::timeCommand(command);
    if (t < 0) {
      return -1;
    }
    samples.push_back(t);
  }
  return bench::median(samples);
}

void bareWrite(const std::string& bytes, const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  size_t offset = 0;
  while (offset < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + offset, bytes.size() - offset);
    if (n <= 0) {
      std::perror("write");
      std::exit(1);
    }
    offset += static_cast<size_t>(n);
  }
  ::fsync(fd);
  ::close(fd);
}

// Interleaves the two writers so that both see the same disk weather.
double writeRatio(const std::string& dir, size_t size, int runs, const char* label) {
  std::string bytes(size, 'v');
  std::vector<double> ours;
  std::vector<double> bare;
  // Both make a new file each time, as a save's staging does.
  storage::DurableChanges changes;
  auto timeOurs = [&] {
    ::unlink((dir + "/ours").c_str());
    auto start = bench::Clock::now();
    changes.stage(dir + "/ours", bytes, 0644);
    ours.push_back(bench::secondsSince(start));
  };
  auto timeBare = [&] {
    ::unlink((dir + "/bare").c_str());
    auto start = bench::Clock::now();
    bareWrite(bytes, dir + "/bare");
    bare.push_back(bench::secondsSince(start));
  };
  // Alternating which goes first cancels any advantage of going second.
  for (int i = 0; i < runs; ++i) {
    if (i % 2 == 0) {
      timeOurs();
      timeBare();
    } else {
      timeBare();
      timeOurs();
    }
  }
  double ratio = bench::median(ours) / bench::median(bare);
  printRow(std::string("DurableChanges::stage ") + label + " median (ms)",
           std::to_string(bench::median(ours) * 1e3));
  printRow(std::string("bare open/write/fsync/close ") + label + " median (ms)",
           std::to_string(bench::median(bare) * 1e3));
  return ratio;
}

}  // namespace

int main(int argc, char** argv) {
  bench::ScratchDir scratch("foundation");
  gHashFile = scratch.path() + "/hash.bin";
  writeHashFile(gHashFile);
  storage::fingerprintFile(gHashFile);  // warm the page cache

  auto results = bench::runRegisteredBenchmarks(argc, argv);
  double ours = 0;
  for (const auto& [name, seconds] : results) {
    if (name.rfind("BM_FingerprintFile", 0) == 0 && name.ends_with("_median")) {
      ours = seconds;
    }
  }
  double megabytes = static_cast<double>(kHashFileSize) / 1e6;
  double openssl = medianCommand("openssl dgst -sha256 " + gHashFile, 5);
  double sha256sum = medianCommand("sha256sum " + gHashFile, 3);

  std::printf("\nFingerprint of a 256 MiB file (warm cache), median:\n");
  printRow("fingerprintFile (MB/s)", std::to_string(megabytes / ours));
  printRow("openssl dgst -sha256 (MB/s)", std::to_string(megabytes / openssl));
  printRow("sha256sum (MB/s)", std::to_string(megabytes / sha256sum));
  printBench("fingerprint_mb_s", megabytes / ours);
  if (openssl > 0) {
    printBench("fingerprint_vs_openssl", openssl / ours);
  }
  if (sha256sum > 0) {
    printBench("fingerprint_vs_sha256sum", sha256sum / ours);
  }

  std::printf("\nDurable writes against bare calls (interleaved), median:\n");
  double ratio4k = writeRatio(scratch.path(), 4096, 300, "4 KiB");
  double ratio1m = writeRatio(scratch.path(), 1 << 20, 60, "1 MiB");
  printBench("write_durably_4k_vs_bare", ratio4k);
  printBench("write_durably_1m_vs_bare", ratio1m);
  return 0;
}
