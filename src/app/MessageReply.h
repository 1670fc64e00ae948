#pragma once

#include <map>
#include <string>

#include "contracts/BridgeResponse.h"

namespace vorna::app {

// The answer of the message transport as the page receives it:
// {"status": …, "headers": {…}, "bodyBase64": "…"}.
struct MessageReply {
  int status = 200;
  std::map<std::string, std::string> headers;  // always with "Cache-Control": "no-store"
  std::string bodyBase64;

  // A bridge response with "Cache-Control" set to "no-store" and the body in base64.
  static MessageReply from(const contracts::BridgeResponse& response);
  // The probe's answer: 200 {"bytes": n}, before any folder is open too.
  static MessageReply probe(size_t bodyBytes);
  // 503 {"error":"no workspace open"}.
  static MessageReply noWorkspace();

  bool operator==(const MessageReply&) const = default;
};

}  // namespace vorna::app
