#pragma once

#include <string>

namespace vorna::bridge {

// What the bridge asks of the desktop for the shell operations. Both calls only
// queue the request to the main context and return at once: the answer to the
// editor never waits for the file manager or an application, and failures
// afterwards are not reported to it. Any thread may call.
class DesktopActions {
 public:
  virtual ~DesktopActions() = default;
  // Shows the item at `path` (absolute) selected in the file manager.
  virtual void reveal(const std::string& path) = 0;
  // Opens the item at `path` (absolute) with the user's default application.
  virtual void open(const std::string& path) = 0;
};

}  // namespace vorna::bridge
