#include "app/WorkspaceBridge.h"

#include <cstdio>

namespace vorna::app {

std::shared_ptr<contracts::BridgeHandling> makeWorkspaceBridge(
    const std::string& folder, [[maybe_unused]] const std::string& recoveryRoot) {
  std::fprintf(stderr, "Vorna: this build has no workspace bridge; %s stays closed\n",
               folder.c_str());
  return nullptr;
}

}  // namespace vorna::app
