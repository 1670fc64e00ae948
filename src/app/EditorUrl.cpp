#include "app/EditorUrl.h"

#include <glib.h>

namespace vorna::app {

std::string percentEncoded(std::string_view text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (g_ascii_isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
      out += c;
    } else {
      auto byte = static_cast<unsigned char>(c);
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 15];
    }
  }
  return out;
}

std::string editorUrl(const std::optional<std::string>& folder,
                      const std::optional<std::string>& page) {
  std::string url = "vorna://app/index.html";
  if (folder) {
    url += "?path=" + percentEncoded(*folder);
    if (page) {
      url += "&open=" + percentEncoded(*page);
    }
  }
  return url;
}

}  // namespace vorna::app
