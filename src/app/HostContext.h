#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "contracts/BridgeHandling.h"

namespace vorna::app {

// What the two transports and the window share: where the editor's files lie
// and which bridge serves the open workspace. Held by shared pointer.
class HostContext {
 public:
  explicit HostContext(std::optional<std::string> appDirectory)
      : appDirectory_(std::move(appDirectory)) {}
  HostContext(const HostContext&) = delete;
  HostContext& operator=(const HostContext&) = delete;

  // The bridge of the open workspace, or null. Any thread. The lock is held
  // only for the copy: callers keep their own reference and call the bridge
  // without it, so a slow operation never blocks a folder switch.
  std::shared_ptr<contracts::BridgeHandling> bridge() const;
  void setBridge(std::shared_ptr<contracts::BridgeHandling> bridge);

  // The _app folder found at start-up, standardized; absent when none was.
  const std::optional<std::string>& appDirectory() const { return appDirectory_; }

  // Finds the editor's folder once at start-up: $VORNA_APP_DIR, then the
  // installed data folder, then `_app` beside the executable and in each
  // folder above it. Only a folder holding an index.html counts.
  static std::optional<std::string> locateAppDirectory();

  // The search itself, with its three inputs given: the environment value
  // (empty counts as unset), the installed folder, and the executable's path.
  // At most 12 folders are tried on the climb, which also stops at "/".
  static std::optional<std::string> locateAppDirectory(const std::string& environmentValue,
                                                       const std::string& installedDirectory,
                                                       const std::string& executablePath);

 private:
  mutable std::mutex lock_;
  std::shared_ptr<contracts::BridgeHandling> bridge_;
  const std::optional<std::string> appDirectory_;
};

}  // namespace vorna::app
