// Latency of a safe save against a naive one on the same disk, and against
// its floor: the sum of the primitives the safe save cannot avoid, each timed
// alone. Overlapping independent work can take the safe save below that sum;
// the serial variant shows what the overlap gains.
#include <fcntl.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "contracts/Json.h"
#include "storage/DurableChanges.h"
#include "storage/Fingerprint.h"
#include "storage/NaiveAdapter.h"
#include "storage/RecoveryStore.h"
#include "storage/SafeAdapter.h"
#include "support/BenchSupport.h"

using namespace vorna;
using namespace vorna::bench;

namespace {

// The host's configuration.
constexpr uint64_t kSettleInterval = 8'000'000;
constexpr int kSettleAttempts = 25;

struct Size {
  const char* label;
  size_t bytes;
  int runs;
};

std::string versionBytes(size_t size, int version) {
  std::string bytes(size, ' ');
  std::string stamp = "<!-- version " + std::to_string(version) + " -->";
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>('a' + (i * 7 + static_cast<size_t>(version)) % 26);
  }
  bytes.replace(0, std::min(stamp.size(), size), stamp.substr(0, size));
  return bytes;
}

void sleepNanos(uint64_t nanos) {
  timespec pause{static_cast<time_t>(nanos / 1'000'000'000),
                 static_cast<long>(nanos % 1'000'000'000)};
  ::nanosleep(&pause, nullptr);
}

std::string ms(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f ms", seconds * 1000);
  return text;
}

// The bare folder flush, which DurableChanges keeps to itself.
void flushFolder(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

template <typename Body>
double timed(Body body) {
  auto start = Clock::now();
  body();
  return secondsSince(start);
}

// One page saved over and over through one adapter, each save expecting the
// version the previous one wrote.
class PageUnderSave {
 public:
  PageUnderSave(const std::string& folder, storage::PageStorageAdapter& adapter, size_t size)
      : page_(folder + "/index.html"), adapter_(adapter), size_(size) {
    std::string first = versionBytes(size, 0);
    storage::DurableChanges().createExclusively(page_, first, 0644);
    expected_ = storage::Fingerprint::ofBytes(first);
  }

  // Returns the save's own time, without making up its bytes.
  double saveNext(int version) {
    std::string bytes = versionBytes(size_, version);
    auto start = Clock::now();
    storage::SaveOutcome outcome = adapter_.save(page_, bytes, expected_);
    double seconds = secondsSince(start);
    if (!outcome.isSaved()) {
      std::fprintf(stderr, "a %s save did not go through\n", adapter_.name().c_str());
      std::exit(1);
    }
    expected_ = outcome.savedInfo().fingerprint;
    return seconds;
  }

 private:
  std::string page_;
  storage::PageStorageAdapter& adapter_;
  size_t size_;
  std::optional<storage::Fingerprint> expected_;
};

// The safe save's unavoidable primitives, in its order and on the same kind
// of files, each timed alone; returns their sum.
class Floor {
 public:
  Floor(const std::string& folder, const std::string& store, size_t size)
      : folder_(folder), store_(store), page_(folder + "/index.html"), size_(size) {
    storage::DurableChanges().createExclusively(page_, versionBytes(size, 0), 0644);
  }

  // The sum of this run's primitives; each one's time is also kept by name.
  double run(int version) {
    std::string bytes = versionBytes(size_, version);
    std::string swap = folder_ + "/.vn-swap-floor-" + std::to_string(version);
    std::string payload = store_ + "/floor-" + std::to_string(version) + ".bin";
    std::string sidecar = store_ + "/floor-" + std::to_string(version) + ".json";
    storage::RecoveryEntry entry{.id = "1763324715123-000001-displacedExpected-floor",
                                 .kind = storage::RecoveryKind::displacedExpected,
                                 .pagePath = page_,
                                 .payloadPath = payload,
                                 .fingerprint = storage::Fingerprint::ofBytes(bytes),
                                 .byteCount = static_cast<int64_t>(size_),
                                 .fingerprintStabilized = true,
                                 .capturedAt = contracts::wholeSecondsNow()};
    std::string json = contracts::writeJson(entry.toJson());

    double total = 0;
    auto step = [&](const char* name, auto body) {
      double seconds = timed(body);
      steps_[name].push_back(seconds);
      total += seconds;
    };
    step("hash new bytes", [&] { storage::Fingerprint::ofBytes(bytes); });
    step("stage: write and flush", [&] { changes_.stage(swap, bytes, 0644); });
    step("exchange", [&] { changes_.exchange(swap, page_); });
    step("settle: read displaced", [&] { storage::fingerprintFile(swap); });
    step("settle: pause", [&] { sleepNanos(kSettleInterval); });
    step("settle: read displaced again", [&] { storage::fingerprintFile(swap); });
    step("sidecar: write and flush", [&] { changes_.stage(sidecar, json, 0600); });
    step("move into store", [&] { ::rename(swap.c_str(), payload.c_str()); });
    step("flush store folder", [&] { flushFolder(store_); });
    step("read back page", [&] { storage::fingerprintFile(page_); });
    return total;
  }

  // Median of each primitive over the runs so far.
  void printSteps() const {
    for (const auto& [name, samples] : steps_) {
      printRow("  floor: " + name, ms(median(samples)));
    }
  }

 private:
  std::string folder_;
  std::string store_;
  std::string page_;
  size_t size_;
  storage::DurableChanges changes_;
  std::map<std::string, std::vector<double>> steps_;
};

std::string ratio(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  return text;
}

}  // namespace

int main() {
  const Size sizes[] = {
      {"4k", 4 * 1024, 200},
      {"256k", 256 * 1024, 150},
      {"8m", 8 * 1024 * 1024, 60},
  };
  std::printf("Safe save (settle %llu ns, %d attempts) against naive save and its floor\n",
              static_cast<unsigned long long>(kSettleInterval), kSettleAttempts);
  for (const Size& size : sizes) {
    ScratchDir scratch(std::string("save-") + size.label);
    auto folder = [&](const std::string& name) {
      std::string path = scratch.path() + "/" + name;
      std::filesystem::create_directory(path);
      return path;
    };
    storage::RecoveryStore safeStore(folder("safe-store"));
    storage::SafeAdapter safe(safeStore, kSettleInterval, kSettleAttempts, false, true);
    storage::RecoveryStore serialStore(folder("serial-store"));
    storage::SafeAdapter serial(serialStore, kSettleInterval, kSettleAttempts, false, true);
    serial.setOverlapIndependentWork(false);
    storage::RecoveryStore naiveStore(folder("naive-store"));
    storage::NaiveAdapter naive(naiveStore);

    PageUnderSave safePage(folder("safe"), safe, size.bytes);
    PageUnderSave serialPage(folder("serial"), serial, size.bytes);
    PageUnderSave naivePage(folder("naive"), naive, size.bytes);
    Floor floor(folder("floor"), folder("floor-store"), size.bytes);

    // Interleaved, so that every variant sees the same state of the disk, and
    // in every order in turn, so that each follows each other one as often
    // (a write costs more right after some other program's writes).
    std::vector<double> safeTimes, serialTimes, naiveTimes, floorTimes;
    std::array<int, 4> order{0, 1, 2, 3};
    for (int run = 1; run <= size.runs; ++run) {
      std::next_permutation(order.begin(), order.end());
      for (int variant : order) {
        switch (variant) {
          case 0:
            safeTimes.push_back(safePage.saveNext(run));
            break;
          case 1:
            serialTimes.push_back(serialPage.saveNext(run));
            break;
          case 2:
            naiveTimes.push_back(naivePage.saveNext(run));
            break;
          default:
            floorTimes.push_back(floor.run(run));
        }
      }
    }

    double safeMedian = median(safeTimes);
    double naiveMedian = median(naiveTimes);
    double floorMedian = median(floorTimes);
    double serialMedian = median(serialTimes);
    std::printf("%s pages, %d saves each:\n", size.label, size.runs);
    printRow("safe median / p99", ms(safeMedian) + " / " + ms(percentile(safeTimes, 0.99)));
    printRow("naive median / p99", ms(naiveMedian) + " / " + ms(percentile(naiveTimes, 0.99)));
    printRow("floor median / p99", ms(floorMedian) + " / " + ms(percentile(floorTimes, 0.99)));
    floor.printSteps();
    printRow("safe without overlap median / p99",
             ms(serialMedian) + " / " + ms(percentile(serialTimes, 0.99)));
    printRow("safe / naive (median, p99)",
             ratio(safeMedian / naiveMedian) + ", " +
                 ratio(percentile(safeTimes, 0.99) / percentile(naiveTimes, 0.99)));
    printRow("safe / floor (median)", ratio(safeMedian / floorMedian));
    printRow("safe without overlap / floor (median)", ratio(serialMedian / floorMedian));
    printRow("gained by overlapping (median)", ms(serialMedian - safeMedian));
    printBench(std::string("safe_vs_naive_") + size.label, safeMedian / naiveMedian);
    if (std::string(size.label) != "256k") {
      printBench(std::string("safe_vs_floor_") + size.label, safeMedian / floorMedian);
    }
  }
  return 0;
}
