// Any path through WorkspaceBoundary over a small tree with links: relative
// and absolute ones, a chain, links to the parent and to the folder itself, a
// loop, a dangling link and one that leaves the workspace. The canonical form
// must agree with realpath(3) wherever realpath succeeds, be a fixed point,
// and never place an outside item inside the workspace.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzWorkspace.h"
#include "bridge/WorkspaceBoundary.h"

using vorna::bridge::WorkspaceBoundary;

namespace {

struct Tree {
  std::string base = vorna::fuzz::makeScratchFolder("vorna-boundary-fuzz");
  std::string workspace = base + "/w";

  Tree() {
    namespace f = vorna::fuzz;
    f::makeFolder(workspace + "/sub/deeper");
    f::makeFolder(base + "/outside");
    f::writeFile(workspace + "/index.html", "");
    f::writeFile(workspace + "/sub/page.html", "");
    f::writeFile(base + "/outside/secret.html", "");
    f::makeLink("..", workspace + "/sub/up");
    f::makeLink(".", workspace + "/self");
    f::makeLink("loop2", workspace + "/loop1");
    f::makeLink("loop1", workspace + "/loop2");
    f::makeLink(base + "/outside", workspace + "/out");
    f::makeLink("../outside/secret.html", workspace + "/secret.html");
    f::makeLink(workspace + "/sub", workspace + "/abs");
    f::makeLink("sub/deeper/../../sub", workspace + "/rel");
    f::makeLink("rel/up/abs/deeper", workspace + "/chain");
    f::makeLink("missing/x", workspace + "/dangling");
    f::makeLink("index.html", workspace + "/page-link.html");
    f::makeLink("../w", base + "/outside/back");
  }
  ~Tree() { vorna::fuzz::removeTree(base); }
};

Tree& tree() {
  static Tree instance;
  return instance;
}

bool isCanonicalForm(const std::string& path) {
  if (path.empty() || path[0] != '/') {
    return false;
  }
  if (path == "/") {
    return true;
  }
  if (path.back() == '/' || path.find("//") != std::string::npos) {
    return false;
  }
  std::string withEnd = path + "/";
  return withEnd.find("/./") == std::string::npos && withEnd.find("/../") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tree& t = tree();
  std::string input(reinterpret_cast<const char*>(data), size);
  std::string path = t.workspace + "/" + input;

  auto canonical = WorkspaceBoundary::canonicalize(path);
  if (canonical) {
    if (!isCanonicalForm(*canonical) || canonical->size() >= PATH_MAX ||
        canonical->find('\0') != std::string::npos) {
      std::abort();
    }
    if (WorkspaceBoundary::canonicalize(*canonical) != canonical) {
      std::abort();  // resolving a resolved path must change nothing
    }
  } else if (path.find('\0') == std::string::npos && path.size() < PATH_MAX / 2 &&
             input.find("loop") == std::string::npos) {
    // Without a NUL byte or the loop, only a path too long for the system or
    // more links than it follows can fail, and realpath fails on those too.
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr) {
      std::abort();
    }
  }
  if (path.find('\0') == std::string::npos) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr && canonical != std::string(resolved)) {
      std::abort();
    }
  }

  WorkspaceBoundary boundary(t.workspace);
  auto inside = boundary.resolveInside(path);
  if (inside) {
    auto again = WorkspaceBoundary::canonicalize(*inside);
    if (!again || !(*again == t.workspace || again->starts_with(t.workspace + "/"))) {
      std::abort();  // an item outside the workspace was taken for an inside one
    }
  }
  if (auto components = boundary.relativeComponents(path)) {
    for (const auto& component : *components) {
      if (component.empty() || component == "." || component == ".." ||
          component.find('/') != std::string::npos) {
        std::abort();
      }
    }
  }
  return 0;
}
