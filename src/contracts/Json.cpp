#include "contracts/Json.h"

namespace vorna::contracts {

std::string writeJson(const Json& value) {
  std::string text;
  try {
    text = value.dump();
  } catch (const Json::exception&) {
    return "{}";
  }
  // In JSON text a "/" can only occur inside a string (keys included), so
  // escaping every one of them escapes exactly the slashes in strings.
  size_t slashes = 0;
  for (char c : text) {
    slashes += c == '/' ? 1 : 0;
  }
  if (slashes == 0) {
    return text;
  }
  std::string escaped;
  escaped.reserve(text.size() + slashes);
  for (char c : text) {
    if (c == '/') {
      escaped += '\\';
    }
    escaped += c;
  }
  return escaped;
}

std::optional<Json> parseJson(std::string_view text) {
  Json value = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) {
    return std::nullopt;
  }
  return value;
}

}  // namespace vorna::contracts
