#pragma once

#include <optional>
#include <string>

#include "bridge/WorkspaceBoundary.h"
#include "contracts/BridgeHandling.h"

namespace vorna::selftest {

// The smoke test's stand-in for the workspace bridge: it lists and reads files
// of one folder and echoes the size of every write without writing anything.
// Paths are confined to the folder as the real bridge confines them (symbolic
// links resolved, at most 64 of them), so a link that leads out of the folder
// leads to a refusal. Any thread; it keeps no state beyond its root.
class SmokeBridge : public contracts::BridgeHandling {
 public:
  explicit SmokeBridge(const std::string& workspaceRoot);

  const std::string& workspaceRoot() const override { return workspaceRoot_; }

  // PUT and POST: 200 {"bytes", "method", "op"}. Other writes: 405 "smoke
  // bridge is read-only: {method}". GET and HEAD of "list" (names without
  // dot-files, in plain byte order, each with its kind) and "file" (the bytes,
  // typed by extension); 400 "path is required", "path must be absolute" or
  // "path is outside the workspace"; 404 "not found: {path}"; any other op 404
  // "smoke bridge has no op {op}".
  contracts::BridgeResponse handle(const contracts::BridgeRequest& request) override;

  // Nothing is watched.
  void startWatching(std::function<void(const contracts::WorkspaceChange&)>) override {}
  void stopWatching() override {}

  // The path inside the workspace that `path` names once its links are
  // resolved: the root itself, or the root joined with the rest. Nothing when
  // it lies outside or cannot be resolved.
  std::optional<std::string> contained(const std::string& path) const {
    return boundary_.resolveInside(path);
  }

 private:
  std::string workspaceRoot_;
  bridge::WorkspaceBoundary boundary_;
};

}  // namespace vorna::selftest
