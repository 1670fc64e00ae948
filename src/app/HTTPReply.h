#pragma once

#include <map>
#include <string>

#include "contracts/BridgeResponse.h"
#include "contracts/Bytes.h"

namespace vorna::app {

// One answer of the scheme transport, before the transport's own headers are
// added. Same shape as a bridge response, from which the /api route copies it.
struct HTTPReply {
  int status = 200;
  std::map<std::string, std::string> headers;
  contracts::Bytes body;

  static HTTPReply from(contracts::BridgeResponse response) {
    return HTTPReply{response.status, std::move(response.headers), std::move(response.body)};
  }
  // A refusal: {"error": message} with only the JSON Content-Type header.
  static HTTPReply error(int status, const std::string& message) {
    return from(contracts::BridgeResponse::error(status, message));
  }

  bool operator==(const HTTPReply&) const = default;
};

}  // namespace vorna::app
