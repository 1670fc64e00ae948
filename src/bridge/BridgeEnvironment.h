#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bridge/BridgeLog.h"
#include "bridge/DesktopActions.h"
#include "bridge/FreedesktopTrash.h"
#include "bridge/GioDesktopActions.h"

namespace vorna::bridge {

// What the file bridge takes from its surroundings besides the file system and
// the recovery service. The defaults are the real desktop; tests replace them
// to observe reveal and open, to trash into a folder of their own, and to read
// the diagnostics.
struct BridgeEnvironment {
  std::shared_ptr<DesktopActions> desktop = makeDefaultDesktopActions();
  // The home trash folder, asked at every trash operation; nothing when the
  // user's data folder cannot be told.
  std::function<std::optional<std::string>()> homeTrash = FreedesktopTrash::defaultHomeTrash;
  BridgeLogSink log = writeBridgeLogToStandardError;
};

}  // namespace vorna::bridge
