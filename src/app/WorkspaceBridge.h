#pragma once

#include <memory>
#include <string>

#include "contracts/BridgeHandling.h"

namespace vorna::app {

// Builds the bridge of one workspace folder: the recovery service (kept under
// `recoveryRoot`, or its default location when that is empty) with 20
// retained versions per page and a grace of 86,400 seconds, its orphaned-swap
// sweep (errors ignored) and retention budget (errors reported on standard
// error as "Vorna: retention budget skipped: {error}"), and the file bridge
// on top. Throws contracts::RecoveryError when the recovery service cannot be
// created; the folder then stays closed.
std::shared_ptr<contracts::BridgeHandling> makeWorkspaceBridge(const std::string& folder,
                                                               const std::string& recoveryRoot);

}  // namespace vorna::app
