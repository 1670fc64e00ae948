#include "app/WorkspaceBridge.h"

#include <optional>

#include "bridge/FileBridge.h"
#include "contracts/RecoveryError.h"
#include "recovery/LocalRecoveryService.h"

namespace vorna::app {
namespace {

constexpr std::int64_t kRetainedPerPage = 20;
constexpr double kRetentionGraceSeconds = 86400;

}  // namespace

std::shared_ptr<contracts::BridgeHandling> makeWorkspaceBridge(const std::string& folder,
                                                               const std::string& recoveryRoot) {
  std::optional<std::string> storeRoot;
  if (!recoveryRoot.empty()) {
    storeRoot = recoveryRoot;
  }
  auto service = std::make_shared<recovery::LocalRecoveryService>(
      folder, storeRoot, kRetainedPerPage, kRetentionGraceSeconds);
  // Before the bridge answers its first request, so swap files a crashed save
  // left behind are in the store before the editor looks.
  try {
    service->sweepOrphanedSwaps();
  } catch (const contracts::RecoveryError&) {
    // The swap files stay where they are and the next opening tries again.
  }
  // Reading a large store and thinning it out waits for nobody.
  auto fileBridge = std::make_shared<bridge::FileBridge>(folder, service);
  fileBridge->prepareInBackground();
  return fileBridge;
}

}  // namespace vorna::app
