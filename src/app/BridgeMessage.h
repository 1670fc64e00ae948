#pragma once

#include <map>
#include <optional>
#include <string>

#include "contracts/Bytes.h"
#include "contracts/Json.h"

namespace vorna::app {

// One /api call as the page's message transport sends it, defaults applied.
struct BridgeMessage {
  std::string method = "GET";
  std::string op;
  std::map<std::string, std::string> query;    // string members only
  std::map<std::string, std::string> headers;  // string members only
  contracts::Bytes body;                       // empty when "bodyBase64" is not strict base64

  // Reads the five keys of a message object, each with its default when
  // absent or of another type. Nothing when the message is not an object.
  static std::optional<BridgeMessage> decode(const contracts::Json& message);

  bool operator==(const BridgeMessage&) const = default;
};

}  // namespace vorna::app
