// The shell's costs, measured on the real web view under a (virtual) display:
//   startup_vs_bare_webview  process start to the page's load finished, the
//                            shell over a minimal WebKitGTK window loading a
//                            static page from the same scheme (median of 5 each)
//   scheme_fetch_32m_mb_s    GET of a 32 MiB /api body through the scheme (MiB/s)
//   message_fetch_32m_mb_s   the same through the message transport (MiB/s)
//   scheme_fetch_vs_handle   the scheme fetch's time over the bridge's handle alone
//   peak_rss_mb              peak resident memory of the whole process tree (MiB)
// Each measurement runs in a child process (this program again, with --child),
// so that start-up is a real start and memory is the tree of one shell.
#include <gtk/gtk.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <webkit/webkit.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/EditorWindowController.h"
#include "app/PageScript.h"
#include "contracts/BridgeResponse.h"
#include "contracts/GObjectPtr.h"
#include "support/BenchSupport.h"

extern char** environ;

namespace {

using namespace vorna;
using bench::Clock;

constexpr size_t kBigBody = 32u * 1024 * 1024;
constexpr int kStartRuns = 5;
constexpr int kSchemeRuns = 5;
constexpr int kMessageRuns = 3;
constexpr double kMiB = 1024.0 * 1024.0;

const char* kPage =
    "<!doctype html><html><head><meta charset=\"utf-8\"><title>bench</title></head>"
    "<body><p>A page to time start-up with.</p></body></html>";

// Serves one 32 MiB body for "big"; the figure for `handle` alone is this copy.
class BigBodyBridge : public contracts::BridgeHandling {
 public:
  BigBodyBridge() : body_(kBigBody, 'v') {}
  const std::string& workspaceRoot() const override { return root_; }
  contracts::BridgeResponse handle(const contracts::BridgeRequest& request) override {
    if (request.op != "big") {
      return contracts::BridgeResponse::error(404,
                                              "unknown op: " + request.method + " " + request.op);
    }
    return contracts::BridgeResponse{200, {{"Content-Type", "application/octet-stream"}}, body_};
  }
  void startWatching(std::function<void(const contracts::WorkspaceChange&)>) override {}
  void stopWatching() override {}

 private:
  std::string root_ = "/bench";
  std::string body_;
};

[[noreturn]] void finish(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
  std::_Exit(0);
}

bool runUntil(const std::function<bool()>& done, double seconds) {
  auto start = Clock::now();
  while (!done()) {
    if (bench::secondsSince(start) > seconds) {
      return false;
    }
    g_main_context_iteration(nullptr, TRUE);
  }
  return true;
}

// --- children (run with a display) ---

int childShellStart() {
  gtk_init();
  app::EditorWindowController controller(false, true);
  controller.setDidFinishLoad([](bool ok) { finish(ok ? "LOADED" : "FAILED"); });
  controller.present();
  controller.load(std::nullopt, std::nullopt);
  runUntil([] { return false; }, 60);
  finish("FAILED");
}

int childBareStart() {
  gtk_init();
  static std::string page = kPage;
  auto context = contracts::GObjectPtr<WebKitWebContext>::adopt(webkit_web_context_new());
  webkit_web_context_register_uri_scheme(
      context.get(), "vorna",
      [](WebKitURISchemeRequest* request, gpointer) {
        auto stream =
            contracts::GObjectPtr<GInputStream>::adopt(g_memory_input_stream_new_from_data(
                page.data(), static_cast<gssize>(page.size()), nullptr));
        webkit_uri_scheme_request_finish(request, stream.get(), static_cast<gint64>(page.size()),
                                         "text/html");
      },
      nullptr, nullptr);
  GtkWidget* view =
      GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", context.get(), nullptr));
  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 1200, 800);
  gtk_window_set_child(GTK_WINDOW(window), view);
  g_signal_connect(view, "load-changed",
                   G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer) {
                     if (event == WEBKIT_LOAD_FINISHED) {
                       finish("LOADED");
                     }
                   }),
                   nullptr);
  gtk_window_present(GTK_WINDOW(window));
  webkit_web_view_load_uri(WEBKIT_WEB_VIEW(view), "vorna://app/index.html");
  runUntil([] { return false; }, 60);
  finish("FAILED");
}

// Runs an async body in the page and returns its string result ("" on failure).
std::string pageCall(app::EditorWindowController& controller, const std::string& body) {
  auto outcome = std::make_shared<std::optional<app::ScriptOutcome>>();
  app::callAsyncScript(controller.webView(), body, nullptr, "vorna-bench://script",
                       [outcome](app::ScriptOutcome done) { *outcome = std::move(done); });
  runUntil([&] { return outcome->has_value(); }, 120);
  if (outcome->has_value() && (*outcome)->failed()) {
    std::fprintf(stderr, "ShellBench: page script failed: %s\n", (*outcome)->error.c_str());
  }
  return outcome->has_value() ? (*outcome)->string().value_or("") : "";
}

std::string timedFetches(const char* mode, int runs) {
  return std::string("await window.__vornaBridgeReady; window.__vornaBridgeMode = '") + mode +
         "'; const times = [];"
         "for (let i = 0; i < " +
         std::to_string(runs) +
         "; i++) {"
         "  const start = performance.now();"
         "  const bytes = await (await fetch('/api/big')).arrayBuffer();"
         "  if (bytes.byteLength !== " +
         std::to_string(kBigBody) +
         ") throw new Error('short body');"
         "  times.push((performance.now() - start) / 1000);"
         "}"
         "return times.join(' ');";
}

int childTransfer() {
  gtk_init();
  app::EditorWindowController controller(false, true);
  controller.useSmokeBridge(std::make_shared<BigBodyBridge>());
  bool loaded = false;
  controller.setDidFinishLoad([&](bool ok) {
    if (!ok) {
      finish("FAILED");
    }
    loaded = true;
  });
  controller.present();
  controller.load(std::nullopt, std::nullopt);
  if (!runUntil([&] { return loaded; }, 60)) {
    finish("FAILED");
  }
  std::string scheme = pageCall(controller, timedFetches("scheme", kSchemeRuns));
  std::string message = pageCall(controller, timedFetches("message", kMessageRuns));
  std::printf("SCHEME %s\nMESSAGE %s\n", scheme.c_str(), message.c_str());
  finish("DONE");
}

// --- the parent ---

std::vector<double> parseSeconds(const std::string& text) {
  std::vector<double> values;
  std::istringstream in(text);
  double value = 0;
  while (in >> value) {
    values.push_back(value);
  }
  return values;
}

// Resident memory of `root` and all its descendants, in MiB.
double treeResidentMiB(pid_t root) {
  std::map<pid_t, pid_t> parents;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    std::getline(stat, line);
    size_t close = line.rfind(')');
    if (close == std::string::npos) {
      continue;
    }
    std::istringstream fields(line.substr(close + 2));
    char state = 0;
    pid_t parent = 0;
    fields >> state >> parent;
    parents[static_cast<pid_t>(std::stoi(name))] = parent;
  }
  std::set<pid_t> tree{root};
  for (bool grew = true; grew;) {
    grew = false;
    for (const auto& [pid, parent] : parents) {
      if (tree.count(parent) != 0 && tree.insert(pid).second) {
        grew = true;
      }
    }
  }
  double kib = 0;
  for (pid_t pid : tree) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind("VmRSS:", 0) == 0) {
        kib += std::stod(line.substr(6));
      }
    }
  }
  return kib / 1024.0;
}

struct Child {
  pid_t pid = -1;
  FILE* out = nullptr;
};

Child spawnChild(const std::string& self, const std::string& mode) {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) {
    std::perror("pipe");
    std::exit(1);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
  std::vector<std::string> args = {self, "--child", mode};
  std::vector<char*> argv;
  for (std::string& arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  Child child;
  if (posix_spawn(&child.pid, self.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
    std::perror("posix_spawn");
    std::exit(1);
  }
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  child.out = ::fdopen(pipeFds[0], "r");
  return child;
}

std::string readLine(FILE* in) {
  char buffer[1 << 16];
  if (std::fgets(buffer, sizeof buffer, in) == nullptr) {
    return "";
  }
  std::string line = buffer;
  while (!line.empty() && line.back() == '\n') {
    line.pop_back();
  }
  return line;
}

void reap(Child& child) {
  std::fclose(child.out);
  int status = 0;
  ::waitpid(child.pid, &status, 0);
}

// Seconds from spawning a child to its "LOADED" line; negative on failure.
double timeStart(const std::string& self, const std::string& mode) {
  auto start = Clock::now();
  Child child = spawnChild(self, mode);
  std::string line = readLine(child.out);
  double elapsed = bench::secondsSince(start);
  reap(child);
  return line == "LOADED" ? elapsed : -1;
}

int parent(const std::string& self) {
  bench::ScratchDir scratch("shell");
  std::filesystem::create_directories(scratch.path() + "/_app");
  std::ofstream(scratch.path() + "/_app/index.html") << kPage;
  setenv("VORNA_APP_DIR", (scratch.path() + "/_app").c_str(), 1);
  for (const char* name : {"XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"}) {
    setenv(name, (scratch.path() + "/" + name).c_str(), 1);
  }
  setenv("GTK_A11Y", "none", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);

  // One unmeasured start each: caches, and the shell's compiled content filter.
  timeStart(self, "shell-start");
  timeStart(self, "bare-start");
  std::vector<double> shell;
  std::vector<double> bare;
  for (int i = 0; i < kStartRuns; ++i) {
    shell.push_back(timeStart(self, "shell-start"));
    bare.push_back(timeStart(self, "bare-start"));
  }
  for (double seconds : shell) {
    if (seconds < 0) {
      std::fprintf(stderr, "ShellBench: the shell's page did not load\n");
      return 1;
    }
  }

  std::atomic<bool> sampling{true};
  std::atomic<double> peak{0};
  Child transfer = spawnChild(self, "transfer");
  std::thread sampler([&] {
    while (sampling.load()) {
      peak = std::max(peak.load(), treeResidentMiB(transfer.pid));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  std::vector<double> scheme;
  std::vector<double> message;
  for (std::string line = readLine(transfer.out);
       !line.empty() && line != "DONE" && line != "FAILED"; line = readLine(transfer.out)) {
    if (line.rfind("SCHEME ", 0) == 0) {
      scheme = parseSeconds(line.substr(7));
    } else if (line.rfind("MESSAGE ", 0) == 0) {
      message = parseSeconds(line.substr(8));
    }
  }
  sampling = false;
  sampler.join();
  reap(transfer);
  if (scheme.empty() || message.empty()) {
    std::fprintf(stderr, "ShellBench: the transfer run failed\n");
    return 1;
  }

  BigBodyBridge bridge;
  contracts::BridgeRequest request = contracts::BridgeRequest::make("GET", "big", {}, {}, "");
  std::vector<double> handle = bench::timeRuns(kSchemeRuns, [&] {
    contracts::BridgeResponse response = bridge.handle(request);
    if (response.body.size() != kBigBody) {
      std::abort();
    }
  });

  double mib = static_cast<double>(kBigBody) / kMiB;
  bench::printRow("shell start to load finished (median s)", std::to_string(bench::median(shell)));
  bench::printRow("bare web view start (median s)", std::to_string(bench::median(bare)));
  bench::printRow("32 MiB over the scheme (median s)", std::to_string(bench::median(scheme)));
  bench::printRow("32 MiB over messages (median s)", std::to_string(bench::median(message)));
  bench::printRow("bridge handle alone (median s)", std::to_string(bench::median(handle)));
  bench::printBench("startup_vs_bare_webview", bench::median(shell) / bench::median(bare));
  bench::printBench("scheme_fetch_32m_mb_s", mib / bench::median(scheme));
  bench::printBench("message_fetch_32m_mb_s", mib / bench::median(message));
  bench::printBench("scheme_fetch_vs_handle", bench::median(scheme) / bench::median(handle));
  bench::printBench("peak_rss_mb", peak.load());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string self = std::filesystem::read_symlink("/proc/self/exe");
  if (argc >= 3 && std::strcmp(argv[1], "--child") == 0) {
    std::string mode = argv[2];
    if (mode == "shell-start") {
      return childShellStart();
    }
    if (mode == "bare-start") {
      return childBareStart();
    }
    if (mode == "transfer") {
      return childTransfer();
    }
    return 2;
  }
  const char* display = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  bool hasDisplay =
      (display != nullptr && *display != '\0') || (wayland != nullptr && *wayland != '\0');
  if (!hasDisplay) {
    if (std::getenv("VORNA_BENCH_UNDER_XVFB") != nullptr || !bench::haveProgram("xvfb-run")) {
      std::fprintf(stderr, "ShellBench: no display, and xvfb-run could not provide one\n");
      return 1;
    }
    setenv("VORNA_BENCH_UNDER_XVFB", "1", 1);
    std::vector<char*> args = {const_cast<char*>("xvfb-run"), const_cast<char*>("-a"), self.data(),
                               nullptr};
    ::execvp("xvfb-run", args.data());
    std::perror("xvfb-run");
    return 1;
  }
  return parent(self);
}
