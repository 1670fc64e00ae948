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
// on top. Throws when the recovery service cannot be created.
//
// This build has no file bridge yet: the function reports that on standard
// error and returns null, which AppWiring turns into an error for the user.
std::shared_ptr<contracts::BridgeHandling> makeWorkspaceBridge(const std::string& folder,
                                                               const std::string& recoveryRoot);

}  // namespace vorna::app
