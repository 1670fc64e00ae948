#pragma once

#include <functional>
#include <string>

#include "contracts/BridgeRequest.h"
#include "contracts/BridgeResponse.h"
#include "contracts/WorkspaceChange.h"

namespace vorna::contracts {

// What a transport needs of a bridge. Implementations are shared objects,
// never copied, and handle requests from several threads at once.
class BridgeHandling {
 public:
  virtual ~BridgeHandling() = default;

  // The workspace folder exactly as the bridge was created with it.
  virtual const std::string& workspaceRoot() const = 0;
  // Answers one request; never throws: every failure is an error response.
  virtual BridgeResponse handle(const BridgeRequest& request) = 0;
  // Starts delivering changes. The callback runs on a background thread of the
  // watcher, never on the main thread, and must be safe to call from there.
  virtual void startWatching(std::function<void(const WorkspaceChange&)> onChange) = 0;
  // Stops delivery; no callback runs after this returns.
  virtual void stopWatching() = 0;
  // Where a text for the user about watching goes, when changes by other
  // programs can only be found late (the system's limits are used up). Set it
  // before startWatching; it runs at most once per start, on any thread.
  virtual void setWatchNoticeHandler(std::function<void(const std::string& notice)>) {}
};

}  // namespace vorna::contracts
