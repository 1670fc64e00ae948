#pragma once

#include <map>
#include <string>

#include "contracts/Bytes.h"
#include "contracts/Json.h"

namespace vorna::contracts {

// The answer to one /api call. A plain value.
struct BridgeResponse {
  int status = 200;
  std::map<std::string, std::string> headers;  // names as the producer wrote them
  Bytes body;

  // The body is `value` written by writeJson ("{}" if it cannot be written);
  // the headers are `headers` with "Content-Type" set to "application/json".
  static BridgeResponse json(int status, const Json& value,
                             std::map<std::string, std::string> headers = {});
  // As json, for JSON text the caller wrote as writeJson would have.
  static BridgeResponse jsonText(int status, std::string text);

  // The body is `extra` with the key "error" set to `message`; exactly one
  // header, "Content-Type": "application/json". `extra` must be an object (or null).
  static BridgeResponse error(int status, const std::string& message,
                              const Json& extra = Json::object());

  bool operator==(const BridgeResponse&) const = default;
};

}  // namespace vorna::contracts
