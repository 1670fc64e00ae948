// The file bridge under load: 8 threads call FileBridge::handle for a fixed
// time (60 s; VORNA_LOAD_SECONDS overrides) with a mix of reads, saves on a
// fresh and on a stale base, drafts, renames and conflict handling, on 200
// pages shared by all threads. A watchdog ends the run when no request has
// finished for 30 s (a deadlock).
//   load_rps                 requests answered per second, all threads
//   load_p99_ms              99th-percentile latency over every request
//   load_unexpected_errors   answers that are neither a success nor a
//                            conflict the mix provokes (must be 0)
//   load_save_fresh_median_ms  median latency of a save on a fresh base
//   load_versions_lost       of the versions the pages held and every body a
//                            save sent, how many are neither in a page nor
//                            in the recovery store at the end (must be 0)
//   load_p99_last_vs_first   p99 of the requests begun in the run's last sixth
//                            over that of its first: history (retained
//                            versions, drafts, conflicts) piles up during the
//                            run, and a cost that grows with it shows here
// Median and 99th percentile are also printed per operation.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "bridge/FileBridge.h"
#include "contracts/BridgeHeader.h"
#include "contracts/BridgeRequest.h"
#include "contracts/Json.h"
#include "recovery/LocalRecoveryService.h"
#include "storage/Fingerprint.h"
#include "support/BenchSupport.h"

using namespace vorna;
using namespace vorna::bench;
using contracts::BridgeRequest;
using contracts::BridgeResponse;

namespace {

constexpr int kThreads = 8;
constexpr int kPages = 200;
constexpr int kRenameFilesPerThread = 4;
constexpr int kWatchdogSeconds = 30;

enum Operation {
  kRead,
  kSaveFresh,
  kSaveStale,
  kDraft,
  kRename,
  kConflicts,
  kResolve,
  kDismiss,
  kOperationCount
};
constexpr std::array<const char*, kOperationCount> kOperationNames = {
    "read", "save_fresh", "save_stale", "draft", "rename", "conflicts", "resolve", "dismiss"};
// Out of 100 requests.
constexpr std::array<int, kOperationCount> kWeights = {38, 22, 6, 12, 8, 6, 4, 4};

class NoDesktop final : public bridge::DesktopActions {
 public:
  void reveal(const std::string&) override {}
  void open(const std::string&) override {}
};

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

std::string pageBody(int page, int thread, long sequence) {
  std::string body = "<html><body><h1>Page " + std::to_string(page) + "</h1><p>thread " +
                     std::to_string(thread) + " edit " + std::to_string(sequence) + "</p>";
  body.append(1024 + static_cast<size_t>(sequence % 512), 'x');
  return body + "</body></html>\n";
}

struct Totals {
  std::mutex mutex;
  std::array<std::vector<double>, kOperationCount> latencies;
  std::array<long, kOperationCount> unexpected{};
  std::array<long, kOperationCount> provoked{};
  std::vector<std::string> firstUnexpected;
  std::unordered_set<std::string> versions;  // every fingerprint that must survive
  // (seconds from the run's start to the request's, latency) of every request
  std::vector<std::pair<double, double>> timeline;
};

class Load {
 public:
  Load(const std::string& root, bridge::FileBridge& bridge, Totals& totals)
      : root_(root), bridge_(bridge), totals_(totals) {}

  std::string page(int index) const {
    char name[32];
    std::snprintf(name, sizeof name, "/p%03d.html", index);
    return root_ + "/" + std::to_string(index % 10) + name;
  }

  void run(int thread, Clock::time_point start, Clock::time_point deadline,
           std::atomic<long>& finished) {
    std::mt19937 random(static_cast<unsigned>(thread) * 7919u + 17u);
    std::uniform_int_distribution<int> percent(0, 99), pageIndex(0, kPages - 1);
    std::array<std::vector<double>, kOperationCount> latencies;
    std::array<long, kOperationCount> unexpected{}, provoked{};
    std::vector<std::string> firstUnexpected;
    std::vector<std::string> versions;
    std::vector<std::pair<double, double>> timeline;
    std::map<int, std::string> known;  // the fingerprint this thread last read per page
    std::vector<bool> renamed(kRenameFilesPerThread, false);
    long sequence = 0;

    while (Clock::now() < deadline) {
      int roll = percent(random), op = 0;
      while (roll >= kWeights[op]) {
        roll -= kWeights[op++];
      }
      int index = pageIndex(random);
      std::string path = page(index);
      ++sequence;
      auto started = Clock::now();
      BridgeResponse response;
      bool expected = false;  // a failure this operation is expected to provoke at times
      switch (op) {
        case kRead:
          response = call("GET", "file", {{"path", path}});
          if (response.status == 200) {
            known[index] = response.headers[contracts::BridgeHeader::fingerprint];
          }
          break;
        case kSaveFresh:
        case kSaveStale: {
          // A fresh base is the version this thread last read or wrote (read
          // now when it has none); a stale base is one no version ever had.
          std::string base(64, '0');
          if (op == kSaveFresh) {
            if (known.count(index) == 0) {
              BridgeResponse head = call("HEAD", "file", {{"path", path}});
              known[index] = head.headers[contracts::BridgeHeader::fingerprint];
            }
            base = known[index];
          }
          std::string body = pageBody(index, thread, sequence);
          versions.push_back(storage::Fingerprint::ofBytes(body).hex);
          response = call("PUT", "file", {{"path", path}}, {{"X-VN-Base", base}}, body);
          if (response.status == 200) {
            known[index] = versions.back();
          } else {
            known.erase(index);
          }
          expected = response.status == 409;
          break;
        }
        case kDraft:
          response = call("PUT", "draft", {{"path", path}},
                          {{"X-VN-Base", known.count(index) ? known[index] : ""}},
                          pageBody(index, thread, sequence) + "<!-- draft -->");
          break;
        case kRename: {
          // Each thread renames only its own files, back and forth, so a
          // rename never races another thread's.
          int file = index % kRenameFilesPerThread;
          std::string a = renameName(thread, file, renamed[file]);
          std::string b = renameName(thread, file, !renamed[file]);
          response = call("POST", "rename", {{"path", a}, {"to", b}});
          if (response.status == 200) {
            renamed[file] = !renamed[file];
          }
          break;
        }
        case kConflicts:
          response = call("GET", "conflicts", {});
          break;
        case kResolve:
          response = resolveOne(expected);
          break;
        case kDismiss:
          response = call("POST", "dismiss", {{"path", path}});
          break;
      }
      latencies[op].push_back(secondsSince(started));
      timeline.emplace_back(std::chrono::duration<double>(started - start).count(),
                            latencies[op].back());
      finished.fetch_add(1, std::memory_order_relaxed);
      if (response.status >= 200 && response.status < 300) {
        continue;
      }
      if (expected) {
        ++provoked[op];
      } else {
        ++unexpected[op];
        if (firstUnexpected.size() < 5) {
          firstUnexpected.push_back(std::string(kOperationNames[op]) + " " + path + ": " +
                                    std::to_string(response.status) + " " + response.body);
        }
      }
    }

    std::lock_guard guard(totals_.mutex);
    for (int op = 0; op < kOperationCount; ++op) {
      totals_.latencies[op].insert(totals_.latencies[op].end(), latencies[op].begin(),
                                   latencies[op].end());
      totals_.unexpected[op] += unexpected[op];
      totals_.provoked[op] += provoked[op];
    }
    totals_.versions.insert(versions.begin(), versions.end());
    totals_.timeline.insert(totals_.timeline.end(), timeline.begin(), timeline.end());
    for (auto& line : firstUnexpected) {
      totals_.firstUnexpected.push_back(std::move(line));
    }
  }

  std::string renameName(int thread, int file, bool moved) const {
    return root_ + "/r/t" + std::to_string(thread) + "-" + std::to_string(file) +
           (moved ? "-b.html" : "-a.html");
  }

 private:
  BridgeResponse call(const std::string& method, const std::string& op,
                      std::map<std::string, std::string> query,
                      const std::map<std::string, std::string>& headers = {},
                      std::string body = {}) {
    return bridge_.handle(
        BridgeRequest::make(method, op, std::move(query), headers, std::move(body)));
  }

  // Resolves the first open conflict with its editor's candidate. Another
  // thread may resolve it first (404) or change the page meanwhile (409).
  BridgeResponse resolveOne(bool& expected) {
    BridgeResponse list = call("GET", "conflicts", {});
    auto json = contracts::parseJson(list.body);
    if (list.status != 200 || !json) {
      return list;
    }
    const contracts::Json* conflicts = json->is_array() ? &*json : nullptr;
    if (json->is_object() && json->contains("conflicts")) {
      conflicts = &(*json)["conflicts"];
    }
    if (!conflicts || !conflicts->is_array() || conflicts->empty()) {
      return list;
    }
    const auto& conflict = conflicts->front();
    if (!conflict.contains("candidates") || conflict["candidates"].empty()) {
      return list;
    }
    std::string page = conflict.value("pagePath", "");
    BridgeResponse current = call("HEAD", "file", {{"path", page}});
    std::string disk = current.headers[contracts::BridgeHeader::fingerprint];
    BridgeResponse response = call("POST", "resolve",
                                   {{"id", conflict.value("id", "")},
                                    {"choose", conflict["candidates"].back().value("id", "")},
                                    {"disk", disk.empty() ? std::string(64, '0') : disk}});
    expected = response.status == 404 || response.status == 409;
    return response;
  }

  std::string root_;
  bridge::FileBridge& bridge_;
  Totals& totals_;
};

// The fingerprint of every regular file below `folder`.
void fingerprintTree(const std::string& folder, std::unordered_set<std::string>& found) {
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) {
    return;
  }
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") {
      continue;
    }
    std::string path = folder + "/" + name;
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) {
      continue;
    }
    if (S_ISDIR(st.st_mode)) {
      fingerprintTree(path, found);
    } else if (S_ISREG(st.st_mode)) {
      std::ifstream in(path, std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      found.insert(storage::Fingerprint::ofBytes(bytes).hex);
    }
  }
  closedir(dir);
}

std::string ms(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f ms", seconds * 1000);
  return text;
}

}  // namespace

int main() {
  double seconds = 60;
  if (const char* value = std::getenv("VORNA_LOAD_SECONDS")) {
    seconds = std::atof(value);
  }
  setenv("VORNA_DRY_OPEN", "1", 1);
  ScratchDir scratch("load");
  std::string root = scratch.path() + "/w";
  std::string store = scratch.path() + "/store";
  mkdir(root.c_str(), 0755);
  mkdir(store.c_str(), 0755);
  mkdir((root + "/r").c_str(), 0755);
  for (int folder = 0; folder < 10; ++folder) {
    mkdir((root + "/" + std::to_string(folder)).c_str(), 0755);
  }

  recovery::RecoveryEnvironment recoveryEnvironment;
  recoveryEnvironment.log = [](std::string_view) {};
  // Nothing is old enough to be pruned during the run, so every displaced
  // version must still be in the store at the end.
  auto service = std::make_shared<recovery::LocalRecoveryService>(
      root, store, 20, 86400.0, storage::FileSystem::real(), recoveryEnvironment);
  bridge::BridgeEnvironment environment;
  environment.desktop = std::make_shared<NoDesktop>();
  std::string trash = scratch.path() + "/Trash";
  environment.homeTrash = [trash] { return std::optional<std::string>(trash); };
  environment.log = [](std::string_view) {};
  bridge::FileBridge bridge(root, service, std::move(environment));

  Totals totals;
  Load load(root, bridge, totals);
  for (int index = 0; index < kPages; ++index) {
    std::string body = pageBody(index, -1, 0);
    writeFile(load.page(index), body);
    totals.versions.insert(storage::Fingerprint::ofBytes(body).hex);
  }
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int file = 0; file < kRenameFilesPerThread; ++file) {
      writeFile(load.renameName(thread, file, false), "<p>moved about</p>");
    }
  }

  std::atomic<long> finished{0};
  std::atomic<bool> done{false};
  std::thread watchdog([&] {
    long last = -1;
    auto lastProgress = Clock::now();
    while (!done.load()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      long now = finished.load();
      if (now != last) {
        last = now;
        lastProgress = Clock::now();
      } else if (secondsSince(lastProgress) > kWatchdogSeconds) {
        std::fprintf(stderr, "LoadBench: no request finished for %d s: deadlock\n",
                     kWatchdogSeconds);
        std::_Exit(2);
      }
    }
  });

  auto started = Clock::now();
  auto deadline =
      started + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] { load.run(thread, started, deadline, finished); });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  double elapsed = secondsSince(started);
  done = true;
  watchdog.join();

  std::unordered_set<std::string> found;
  fingerprintTree(root, found);
  fingerprintTree(store, found);
  long lost = 0;
  for (const auto& version : totals.versions) {
    lost += found.count(version) == 0 ? 1 : 0;
  }

  std::vector<double> all;
  long unexpected = 0;
  std::printf("%-12s %9s %10s %10s %9s %11s\n", "operation", "requests", "median", "p99",
              "provoked", "unexpected");
  for (int op = 0; op < kOperationCount; ++op) {
    const auto& samples = totals.latencies[op];
    all.insert(all.end(), samples.begin(), samples.end());
    unexpected += totals.unexpected[op];
    std::printf("%-12s %9zu %10s %10s %9ld %11ld\n", kOperationNames[op], samples.size(),
                samples.empty() ? "-" : ms(median(samples)).c_str(),
                samples.empty() ? "-" : ms(percentile(samples, 0.99)).c_str(), totals.provoked[op],
                totals.unexpected[op]);
  }
  for (const auto& line : totals.firstUnexpected) {
    std::printf("unexpected: %.300s\n", line.c_str());
  }
  printRow("threads x pages", std::to_string(kThreads) + " x " + std::to_string(kPages));
  printRow("duration", std::to_string(elapsed) + " s");
  printRow("versions checked", std::to_string(totals.versions.size()));
  printBench("load_rps", static_cast<double>(all.size()) / elapsed);
  printBench("load_p99_ms", all.empty() ? 0 : percentile(all, 0.99) * 1000);
  const auto& fresh = totals.latencies[kSaveFresh];
  printBench("load_save_fresh_median_ms", fresh.empty() ? 0 : median(fresh) * 1000);
  std::vector<double> first, last;
  for (const auto& [at, latency] : totals.timeline) {
    if (at < seconds / 6) {
      first.push_back(latency);
    } else if (at >= seconds * 5 / 6) {
      last.push_back(latency);
    }
  }
  if (!first.empty() && !last.empty()) {
    printRow("p99 first sixth / last sixth", ms(percentile(first, 0.99)) + " / " +
                                                 ms(percentile(last, 0.99)));
    printBench("load_p99_last_vs_first", percentile(last, 0.99) / percentile(first, 0.99));
  }
  printBench("load_unexpected_errors", static_cast<double>(unexpected));
  printBench("load_versions_lost", static_cast<double>(lost));
  return unexpected == 0 && lost == 0 ? 0 : 1;
}
