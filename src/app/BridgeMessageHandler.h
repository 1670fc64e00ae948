#pragma once

#include <memory>

#include "app/HostContext.h"
#include "app/WorkQueue.h"

typedef struct _WebKitUserContentManager WebKitUserContentManager;

namespace vorna::app {

// The native half of the message transport: a script message handler with
// reply named "vorna". Bridge calls run one at a time, in arrival order, on a
// serial queue; every reply is given on the main thread, exactly once.
class BridgeMessageHandler {
 public:
  static constexpr const char* kName = "vorna";
  static constexpr const char* kQueueLabel = "app.vorna.Vorna.message";
  static constexpr const char* kNotAnObject = "vorna: expected an object";

  explicit BridgeMessageHandler(std::shared_ptr<HostContext> host);
  BridgeMessageHandler(const BridgeMessageHandler&) = delete;
  BridgeMessageHandler& operator=(const BridgeMessageHandler&) = delete;

  // Registers the handler under "vorna" in the page's world and connects it.
  // The caller keeps the handler alive until it calls `disconnect`. Main thread.
  void connect(WebKitUserContentManager* manager);
  void disconnect(WebKitUserContentManager* manager);

 private:
  std::shared_ptr<HostContext> host_;
  WorkQueue queue_;
};

}  // namespace vorna::app
