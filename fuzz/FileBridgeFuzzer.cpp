// Any request through FileBridge::handle on a real workspace with its
// recovery store, a home trash, and an outside folder a link points into.
// After every request: handle answered with a status, and nothing outside the
// workspace, the store and the trash changed. The bridge launches nothing
// (VORNA_DRY_OPEN, and desktop actions that do nothing).
//
// Input: four lines, then the body:
//   method
//   op
//   query items "name=value" joined by "&"
//   header items "name:value" joined by "&"
// In query values "@W" stands for the workspace folder and "@B" for the
// folder that holds it, so that paths reach real items and their neighbours.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzWorkspace.h"
#include "bridge/DesktopActions.h"
#include "bridge/FileBridge.h"
#include "contracts/BridgeRequest.h"
#include "recovery/LocalRecoveryService.h"

using namespace vorna;

namespace {

class NoDesktop final : public bridge::DesktopActions {
 public:
  void reveal(const std::string&) override {}
  void open(const std::string&) override {}
};

// Rebuilt from scratch now and then so that the workspace stays small.
constexpr int kRequestsPerWorkspace = 500;

struct Workspace {
  std::string base = fuzz::makeScratchFolder("vorna-bridge-fuzz");
  std::string inner = base + "/inner";
  std::string root = inner + "/w";
  std::string outside = base + "/outside";
  std::map<std::string, std::string> outsideBefore;
  std::map<std::string, std::string> baseEntriesBefore;
  std::map<std::string, std::string> innerEntriesBefore;
  std::unique_ptr<bridge::FileBridge> bridge;
  int requests = 0;

  Workspace() {
    fuzz::makeFolder(outside + "/notes");
    fuzz::writeFile(outside + "/secret.html", "<p>secret</p>");
    fuzz::writeFile(outside + "/notes/a.txt", "a");
    fuzz::makeLink(root, outside + "/back");
    rebuild();
    outsideBefore = fuzz::snapshot(outside);
    baseEntriesBefore = entries(base);
    innerEntriesBefore = entries(inner);
  }
  ~Workspace() {
    bridge.reset();
    fuzz::removeTree(base);
  }

  void rebuild() {
    bridge.reset();
    fuzz::removeTree(inner);
    fuzz::makeFolder(root + "/sub/deeper");
    fuzz::makeFolder(inner + "/store");
    fuzz::makeFolder(inner + "/data/Trash");
    fuzz::writeFile(root + "/index.html", "<html><body><p>index</p></body></html>");
    fuzz::writeFile(root + "/about.html", "<p>about</p>");
    fuzz::writeFile(root + "/sub/page.html", "<p>page</p>");
    fuzz::writeFile(root + "/style.css", "p { color: red }");
    fuzz::makeLink(outside, root + "/out");
    fuzz::makeLink("../outside/secret.html", root + "/secret.html");
    fuzz::makeLink("../../outside/secret.html", root + "/secret2.html");
    fuzz::makeLink("loop-b", root + "/loop-a");
    fuzz::makeLink("loop-a", root + "/loop-b");
    fuzz::makeLink("sub", root + "/sub-link");

    recovery::RecoveryEnvironment recoveryEnvironment;
    recoveryEnvironment.log = [](std::string_view) {};
    auto service = std::make_shared<recovery::LocalRecoveryService>(
        root, inner + "/store", 3, 0.0, storage::FileSystem::real(), recoveryEnvironment);
    bridge::BridgeEnvironment environment;
    environment.desktop = std::make_shared<NoDesktop>();
    std::string trash = inner + "/data/Trash";
    environment.homeTrash = [trash] { return std::optional<std::string>(trash); };
    environment.log = [](std::string_view) {};
    bridge = std::make_unique<bridge::FileBridge>(root, service, std::move(environment));
    requests = 0;
  }

  // The names directly in `folder`, each with its mode.
  static std::map<std::string, std::string> entries(const std::string& folder) {
    std::map<std::string, std::string> names;
    for (const auto& [path, facts] : fuzz::snapshot(folder)) {
      std::string_view rest(path);
      rest.remove_prefix(folder.size() + 1);
      if (rest.find('/') == std::string_view::npos) {
        names[std::string(rest)] = facts.substr(0, facts.find(' '));
      }
    }
    return names;
  }
};

Workspace& workspace() {
  static Workspace instance;
  return instance;
}

std::string_view takeLine(std::string_view& input) {
  auto end = input.find('\n');
  std::string_view line = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return line;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    auto end = text.find(separator);
    parts.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return parts;
}

std::string expand(std::string_view value, const Workspace& w) {
  std::string out;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '@' && i + 1 < value.size() && (value[i + 1] == 'W' || value[i + 1] == 'B')) {
      out += value[i + 1] == 'W' ? w.root : w.base;
      ++i;
    } else {
      out += value[i];
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("VORNA_DRY_OPEN", "1", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Workspace& w = workspace();
  if (++w.requests > kRequestsPerWorkspace) {
    w.rebuild();
  }
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string method(takeLine(input));
  std::string op(takeLine(input));
  std::map<std::string, std::string> query;
  for (auto item : split(takeLine(input), '&')) {
    auto equals = item.find('=');
    query[std::string(item.substr(0, equals))] =
        equals == std::string_view::npos ? "" : expand(item.substr(equals + 1), w);
  }
  std::map<std::string, std::string> headers;
  for (auto item : split(takeLine(input), '&')) {
    auto colon = item.find(':');
    headers[std::string(item.substr(0, colon))] =
        colon == std::string_view::npos ? "" : std::string(item.substr(colon + 1));
  }
  auto request = contracts::BridgeRequest::make(method, op, std::move(query), headers,
                                                contracts::Bytes(input));
  auto response = w.bridge->handle(request);
  if (response.status < 200 || response.status > 599) {
    std::abort();
  }
  if (fuzz::snapshot(w.outside) != w.outsideBefore || Workspace::entries(w.base) != w.baseEntriesBefore ||
      Workspace::entries(w.inner) != w.innerEntriesBefore) {
    std::abort();  // something outside the workspace, the store and the trash changed
  }
  return 0;
}
