#include "app/MessageReply.h"

#include <glib.h>

#include "app/Base64.h"

namespace vorna::app {

MessageReply MessageReply::from(const contracts::BridgeResponse& response) {
  MessageReply reply;
  reply.status = response.status;
  for (const auto& [name, value] : response.headers) {
    if (g_ascii_strcasecmp(name.c_str(), "Cache-Control") != 0) {
      reply.headers[name] = value;
    }
  }
  reply.headers["Cache-Control"] = "no-store";
  reply.bodyBase64 = base64Encode(response.body);
  return reply;
}

MessageReply MessageReply::probe(size_t bodyBytes) {
  return from(contracts::BridgeResponse::json(
      200, contracts::Json{{"bytes", static_cast<int64_t>(bodyBytes)}}));
}

MessageReply MessageReply::noWorkspace() {
  return from(contracts::BridgeResponse::error(503, "no workspace open"));
}

}  // namespace vorna::app
