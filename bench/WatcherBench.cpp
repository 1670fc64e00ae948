// The workspace watcher: starting on a large tree (against inotifywait on the
// same tree in the same run), the delay from an outside write to the callback,
// and what the watcher costs while nothing changes.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "bridge/WorkspaceWatcher.h"
#include "support/BenchSupport.h"

extern char** environ;

namespace {

using namespace vorna;
using namespace std::chrono_literals;
using bench::printBench;
using bench::printRow;

constexpr int kTopFolders = 50;
constexpr int kSubFolders = 99;      // 50 + 50 * 99 = 5,000 folders
constexpr int kFilesPerFolder = 20;  // 100,000 files
constexpr int kStartRuns = 5;
constexpr int kLatencyWrites = 200;
constexpr auto kIdleSpell = 3s;

void writeSmallFile(const std::string& path, const std::string& bytes) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    std::perror(path.c_str());
    std::exit(1);
  }
  ::close(fd);
}

void fillFolder(const std::string& folder) {
  if (::mkdir(folder.c_str(), 0755) != 0) {
    std::perror(folder.c_str());
    std::exit(1);
  }
  // Empty files: starting reads attributes only, and a hundred thousand dirty
  // pages would make creating and removing the tree the slowest part of the run.
  for (int i = 0; i < kFilesPerFolder; ++i) {
    std::string path = folder + "/page-" + std::to_string(i) + ".html";
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
      std::perror(path.c_str());
      std::exit(1);
    }
    ::close(fd);
  }
}

int makeTree(const std::string& root) {
  int folders = 0;
  for (int top = 0; top < kTopFolders; ++top) {
    std::string topPath = root + "/t" + std::to_string(top);
    fillFolder(topPath);
    ++folders;
    for (int sub = 0; sub < kSubFolders; ++sub) {
      fillFolder(topPath + "/s" + std::to_string(sub));
      ++folders;
    }
  }
  return folders;
}

double cpuSeconds(const rusage& usage) {
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double threadCpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return cpuSeconds(usage);
}

// Seconds from launching `inotifywait -r -m root` to its "Watches established"
// line; negative when it could not run. `cpu` receives the CPU time the program
// used in all (it does nothing more once its watches are established).
double timeInotifywait(const std::string& root, double* cpu = nullptr) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
    return -1;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const char* argv[] = {"inotifywait", "-r", "-m", root.c_str(), nullptr};
  pid_t child = 0;
  auto started = bench::Clock::now();
  int failed = ::posix_spawnp(&child, "inotifywait", &actions, nullptr,
                              const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (failed != 0) {
    ::close(pipeFds[0]);
    return -1;
  }
  std::string seen;
  double elapsed = -1;
  char buffer[512];
  ssize_t got = 0;
  while ((got = ::read(pipeFds[0], buffer, sizeof buffer)) > 0) {
    seen.append(buffer, static_cast<size_t>(got));
    if (seen.find("Watches established") != std::string::npos) {
      elapsed = bench::secondsSince(started);
      break;
    }
  }
  ::kill(child, SIGTERM);
  rusage usage{};
  ::wait4(child, nullptr, 0, &usage);
  if (cpu != nullptr) {
    *cpu = cpuSeconds(usage);
  }
  ::close(pipeFds[0]);
  return elapsed;
}

// Voluntary and involuntary context switches of one thread of this process.
long contextSwitches(pid_t tid) {
  std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
  std::string line;
  long total = 0;
  while (std::getline(status, line)) {
    if (line.starts_with("voluntary_ctxt_switches:") ||
        line.starts_with("nonvoluntary_ctxt_switches:")) {
      total += std::stol(line.substr(line.find(':') + 1));
    }
  }
  return total;
}

// Collects the arrival of changes for the latency runs.
class Arrivals {
 public:
  void arrived(const contracts::WorkspaceChange& change) {
    std::lock_guard guard(mutex_);
    queueThread_ = ::gettid();
    if (change.path == awaited_) {
      arrivedAt_ = bench::Clock::now();
      done_ = true;
      signal_.notify_all();
    }
  }
  void expect(const std::string& path) {
    std::lock_guard guard(mutex_);
    awaited_ = path;
    done_ = false;
  }
  // Seconds from `since` to the awaited change; negative after 5 s without it.
  double waitSince(bench::Clock::time_point since) {
    std::unique_lock guard(mutex_);
    if (!signal_.wait_for(guard, 5s, [&] { return done_; })) {
      return -1;
    }
    return std::chrono::duration<double>(arrivedAt_ - since).count();
  }
  pid_t queueThread() {
    std::lock_guard guard(mutex_);
    return queueThread_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable signal_;
  std::string awaited_;
  bool done_ = false;
  bench::Clock::time_point arrivedAt_;
  pid_t queueThread_ = 0;
};

}  // namespace

int main() {
  bench::ScratchDir scratch("watcher");
  const std::string root = scratch.path() + "/site";
  ::mkdir(root.c_str(), 0755);
  auto creating = bench::Clock::now();
  int folders = makeTree(root);
  printRow("tree: folders / files",
           std::to_string(folders) + " / " + std::to_string(folders * kFilesPerFolder));
  printRow("tree creation (s)", std::to_string(bench::secondsSince(creating)));

  double baselineMiB = bench::peakResidentMiB();
  bridge::WorkspaceWatcher watcher{bridge::WorkspaceBoundary(root)};
  Arrivals arrivals;
  auto onChange = [&](const contracts::WorkspaceChange& change) { arrivals.arrived(change); };

  // Both walk a warm tree: one untimed walk of each first.
  watcher.start(onChange);
  watcher.stop();
  bool haveInotifywait = bench::haveProgram("inotifywait") && timeInotifywait(root) >= 0;
  // Wall time is the figure; CPU time is shown beside it because it stays
  // comparable on a machine that is busy with other work.
  std::vector<double> ours, oursCpu, theirs, theirsCpu;
  for (int run = 0; run < kStartRuns; ++run) {
    auto started = bench::Clock::now();
    double cpuBefore = threadCpuSeconds();
    watcher.start(onChange);
    oursCpu.push_back(threadCpuSeconds() - cpuBefore);
    ours.push_back(bench::secondsSince(started));
    watcher.stop();
    if (haveInotifywait) {
      double cpu = 0;
      theirs.push_back(timeInotifywait(root, &cpu));
      theirsCpu.push_back(cpu);
    }
  }
  double peakMiB = bench::peakResidentMiB();
  printRow("start() median: wall / CPU (s)",
           std::to_string(bench::median(ours)) + " / " + std::to_string(bench::median(oursCpu)));
  printRow("peak resident before / after start (MiB)",
           std::to_string(baselineMiB) + " / " + std::to_string(peakMiB));
  if (haveInotifywait) {
    printRow(
        "inotifywait -r -m to \"Watches established\": wall / CPU (s)",
        std::to_string(bench::median(theirs)) + " / " + std::to_string(bench::median(theirsCpu)));
    printBench("watcher_start_vs_inotifywait", bench::median(ours) / bench::median(theirs));
  } else {
    printRow("inotifywait", "not installed (scripts/install-deps installs inotify-tools)");
  }
  printBench("watcher_start_peak_mb", peakMiB);

  // Latency: one outside write at a time, each awaited before the next.
  watcher.start(onChange);
  std::vector<double> delays;
  for (int i = 0; i < kLatencyWrites; ++i) {
    std::string path =
        root + "/t" + std::to_string(i % kTopFolders) + "/latency-" + std::to_string(i) + ".html";
    arrivals.expect(path);
    auto written = bench::Clock::now();
    writeSmallFile(path, "<p>latency " + std::to_string(i) + "</p>");
    double delay = arrivals.waitSince(written);
    if (delay < 0) {
      std::fprintf(stderr, "no change arrived for %s\n", path.c_str());
      return 1;
    }
    delays.push_back(delay);
  }
  printBench("watcher_latency_p50_s", bench::median(delays));
  printBench("watcher_latency_p99_s", bench::percentile(delays, 0.99));

  // Idle: the queue thread once the last batch is out.
  std::this_thread::sleep_for(500ms);
  pid_t queueThread = arrivals.queueThread();
  long before = contextSwitches(queueThread);
  auto idleStart = bench::Clock::now();
  std::this_thread::sleep_for(kIdleSpell);
  long after = contextSwitches(queueThread);
  double seconds = bench::secondsSince(idleStart);
  printRow("queue thread context switches while idle", std::to_string(after - before));
  printBench("watcher_idle_wakeups_per_s", static_cast<double>(after - before) / seconds);
  watcher.stop();
  return 0;
}
