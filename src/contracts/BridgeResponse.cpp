#include "contracts/BridgeResponse.h"

namespace vorna::contracts {
namespace {

constexpr const char* kContentType = "Content-Type";
constexpr const char* kApplicationJson = "application/json";

}  // namespace

BridgeResponse BridgeResponse::json(int status, const Json& value,
                                    std::map<std::string, std::string> headers) {
  headers.insert_or_assign(kContentType, kApplicationJson);
  return BridgeResponse{status, std::move(headers), writeJson(value)};
}

BridgeResponse BridgeResponse::jsonText(int status, std::string text) {
  return BridgeResponse{status, {{kContentType, kApplicationJson}}, std::move(text)};
}

BridgeResponse BridgeResponse::error(int status, const std::string& message, const Json& extra) {
  Json body = extra.is_object() ? extra : Json::object();
  body["error"] = message;
  return BridgeResponse{status, {{kContentType, kApplicationJson}}, writeJson(body)};
}

}  // namespace vorna::contracts
