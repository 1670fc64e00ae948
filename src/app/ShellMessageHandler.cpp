#include "app/ShellMessageHandler.h"

#include <cstdio>

#include "app/MainThread.h"

namespace vorna::app {

ShellMessageHandler::Classified ShellMessageHandler::classify(
    const std::optional<contracts::Json>& message) {
  if (!message || !message->is_object()) {
    return {};
  }
  auto op = message->find("op");
  if (op == message->end() || !op->is_string()) {
    return {};
  }
  std::string name = op->get<std::string>();
  Request request = name == "openFolder" ? Request::openFolder : Request::unknown;
  return {request, std::move(name)};
}

void ShellMessageHandler::receive(const std::optional<contracts::Json>& message) {
  Classified classified = classify(message);
  switch (classified.request) {
    case Request::ignored:
      return;
    case Request::openFolder:
      postToMainThread([weak = std::weak_ptr<ShellMessageHandler*>(self_)] {
        if (auto self = weak.lock(); self && (*self)->onOpenFolder) {
          (*self)->onOpenFolder();
        }
      });
      return;
    case Request::unknown:
      std::fprintf(stderr, "Vorna: unknown shell op %s\n", classified.op.c_str());
      return;
  }
}

}  // namespace vorna::app
