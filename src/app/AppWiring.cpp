#include "app/AppWiring.h"

#include <cstdlib>
#include <stdexcept>

#include "app/WorkspaceBridge.h"

namespace vorna::app {

std::string AppWiring::recoveryRoot() {
  const char* root = std::getenv("VORNA_RECOVERY_ROOT");
  return root == nullptr ? "" : root;
}

std::shared_ptr<contracts::BridgeHandling> AppWiring::makeBridge(const std::string& folder) {
  std::shared_ptr<contracts::BridgeHandling> bridge = makeWorkspaceBridge(folder, recoveryRoot());
  if (!bridge) {
    throw std::runtime_error("This build of Vorna cannot open workspaces.");
  }
  return bridge;
}

}  // namespace vorna::app
