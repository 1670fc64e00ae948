#include "app/BridgeMessage.h"

#include "app/Base64.h"

namespace vorna::app {
namespace {

using contracts::Json;

std::map<std::string, std::string> stringMembers(const Json& message, const char* key) {
  std::map<std::string, std::string> members;
  auto found = message.find(key);
  if (found == message.end() || !found->is_object()) {
    return members;
  }
  for (const auto& [name, value] : found->items()) {
    if (value.is_string()) {
      members[name] = value.get<std::string>();
    }
  }
  return members;
}

std::optional<std::string> stringMember(const Json& message, const char* key) {
  auto found = message.find(key);
  if (found == message.end() || !found->is_string()) {
    return std::nullopt;
  }
  return found->get<std::string>();
}

}  // namespace

std::optional<BridgeMessage> BridgeMessage::decode(const Json& message) {
  if (!message.is_object()) {
    return std::nullopt;
  }
  BridgeMessage decoded;
  decoded.method = stringMember(message, "method").value_or("GET");
  decoded.op = stringMember(message, "op").value_or("");
  decoded.query = stringMembers(message, "query");
  decoded.headers = stringMembers(message, "headers");
  auto body = message.find("bodyBase64");
  if (body != message.end() && body->is_string()) {
    decoded.body = base64Decode(body->get_ref<const std::string&>()).value_or(contracts::Bytes());
  }
  return decoded;
}

}  // namespace vorna::app
