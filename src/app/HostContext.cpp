#include "app/HostContext.h"

#include <cstdio>
#include <cstdlib>

#include "bridge/ItemFacts.h"
#include "recovery/PathForms.h"
#include "storage/PathNames.h"

namespace vorna::app {
namespace {

bool holdsEditor(const std::string& folder) {
  return bridge::isRegularFile(folder + "/index.html", storage::FileSystem::real());
}

}  // namespace

std::shared_ptr<contracts::BridgeHandling> HostContext::bridge() const {
  std::lock_guard guard(lock_);
  return bridge_;
}

void HostContext::setBridge(std::shared_ptr<contracts::BridgeHandling> bridge) {
  std::shared_ptr<contracts::BridgeHandling> handed;
  std::shared_future<void> released;
  if (bridge) {
    auto done = std::make_shared<std::promise<void>>();
    released = done->get_future().share();
    contracts::BridgeHandling* raw = bridge.get();
    handed = std::shared_ptr<contracts::BridgeHandling>(
        raw, [owner = std::move(bridge), done](contracts::BridgeHandling*) { done->set_value(); });
  }
  std::shared_ptr<contracts::BridgeHandling> previous;
  {
    std::lock_guard guard(lock_);
    previous = std::exchange(bridge_, std::move(handed));
    released_ = std::move(released);
  }
  // `previous` may hold the last reference; it is released outside the lock.
}

bool HostContext::retireBridge(std::chrono::milliseconds limit) {
  std::shared_ptr<contracts::BridgeHandling> previous;
  std::shared_future<void> released;
  {
    std::lock_guard guard(lock_);
    previous = std::exchange(bridge_, nullptr);
    released = std::exchange(released_, {});
  }
  previous.reset();
  return !released.valid() || released.wait_for(limit) == std::future_status::ready;
}

std::optional<std::string> HostContext::locateAppDirectory() {
  const char* environment = std::getenv("VORNA_APP_DIR");
  std::string executablePath;
  if (storage::FileSystem::real().readlink("/proc/self/exe", executablePath) <= 0) {
    executablePath.clear();
  }
  EditorLayout layout{.buildDirectory = VORNA_BUILD_DIR,
                      .buildEditors = {VORNA_STAGED_APP_DIR},
                      .installedRelative = VORNA_INSTALLED_APP_RELATIVE};
  std::optional<LocatedEditor> found =
      locateAppDirectory(environment == nullptr ? "" : environment, executablePath, layout);
  const char* debug = std::getenv("VORNA_DEBUG");
  if (debug != nullptr && *debug != '\0') {
    if (found) {
      std::fprintf(stderr, "Vorna: serving the editor from %s (%s)\n", found->folder.c_str(),
                   found->origin.c_str());
    } else {
      std::fprintf(stderr, "Vorna: no editor folder found for %s\n", executablePath.c_str());
    }
  }
  return found ? std::optional<std::string>(found->folder) : std::nullopt;
}

std::optional<HostContext::LocatedEditor> HostContext::locateAppDirectory(
    const std::string& environmentValue, const std::string& executablePath,
    const EditorLayout& layout) {
  if (!environmentValue.empty() && holdsEditor(environmentValue)) {
    return LocatedEditor{recovery::standardisedPath(environmentValue), "VORNA_APP_DIR"};
  }
  if (executablePath.empty()) {
    return std::nullopt;
  }
  std::string program = recovery::resolvedPath(executablePath, storage::FileSystem::real());
  std::string folder = storage::parentFolder(program);
  if (!layout.buildDirectory.empty() && program.starts_with(layout.buildDirectory + "/")) {
    for (const std::string& editor : layout.buildEditors) {
      if (holdsEditor(editor)) {
        return LocatedEditor{recovery::standardisedPath(editor), "the build tree"};
      }
    }
  }
  if (std::string beside = folder + "/_app"; holdsEditor(beside)) {
    return LocatedEditor{recovery::standardisedPath(beside), "beside the program"};
  }
  if (std::string installed = folder + "/" + layout.installedRelative;
      !layout.installedRelative.empty() && holdsEditor(installed)) {
    return LocatedEditor{recovery::standardisedPath(installed), "the install prefix"};
  }
  return std::nullopt;
}

}  // namespace vorna::app
