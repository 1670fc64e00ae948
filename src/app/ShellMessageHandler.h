#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "contracts/Json.h"

namespace vorna::app {

// Receives the page's requests to the shell on the plain message handler
// "vornaShell" (no reply). Main thread.
class ShellMessageHandler {
 public:
  static constexpr const char* kName = "vornaShell";

  ShellMessageHandler() = default;
  ShellMessageHandler(const ShellMessageHandler&) = delete;
  ShellMessageHandler& operator=(const ShellMessageHandler&) = delete;

  // What one message asks for.
  enum class Request { ignored, openFolder, unknown };
  struct Classified {
    Request request = Request::ignored;
    std::string op;  // the op as sent, when there was one
    bool operator==(const Classified&) const = default;
  };

  // A message that is not an object, or whose "op" is missing or not a
  // string, is ignored; "openFolder" opens the open panel; any other op is unknown.
  static Classified classify(const std::optional<contracts::Json>& message);

  // Acts on one message: `onOpenFolder` runs later on the main thread (while
  // this handler exists); an unknown op is reported on standard error as
  // "Vorna: unknown shell op {op}".
  void receive(const std::optional<contracts::Json>& message);

  std::function<void()> onOpenFolder;

 private:
  // Lets a posted call see whether the handler still exists when it runs.
  std::shared_ptr<ShellMessageHandler*> self_ = std::make_shared<ShellMessageHandler*>(this);
};

}  // namespace vorna::app
