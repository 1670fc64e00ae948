#pragma once

#include <functional>
#include <memory>
#include <string>

#include "contracts/BridgeHandling.h"

namespace vorna::app {

// Builds the pieces of one run that depend on its environment.
struct AppWiring {
  AppWiring() = delete;

  // Builds the workspace bridge for one folder, its recovery store under
  // $VORNA_RECOVERY_ROOT when that is set. Throws std::runtime_error with the
  // text the user sees when no bridge can be built.
  static std::shared_ptr<contracts::BridgeHandling> makeBridge(const std::string& folder);

  // The recovery store's root from the environment; "" for the default.
  static std::string recoveryRoot();
};

// How the window builds bridges: AppWiring::makeBridge, or a stand-in in tests.
using BridgeFactory = std::function<std::shared_ptr<contracts::BridgeHandling>(const std::string&)>;

}  // namespace vorna::app
