#include "app/UrlParts.h"

#include <glib.h>

namespace vorna::app {

std::optional<UrlParts> UrlParts::parse(std::string_view url) {
  size_t colon = url.find(':');
  if (colon == std::string_view::npos || colon == 0 || !g_ascii_isalpha(url[0])) {
    return std::nullopt;
  }
  UrlParts parts;
  for (char c : url.substr(0, colon)) {
    if (!g_ascii_isalnum(c) && c != '+' && c != '-' && c != '.') {
      return std::nullopt;
    }
    parts.scheme += g_ascii_tolower(c);
  }
  std::string_view rest = url.substr(colon + 1);
  rest = rest.substr(0, rest.find('#'));
  size_t question = rest.find('?');
  if (question != std::string_view::npos) {
    parts.query = std::string(rest.substr(question + 1));
    rest = rest.substr(0, question);
  }
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    size_t slash = rest.find('/');
    parts.host = std::string(rest.substr(0, slash));
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
  }
  parts.path = std::string(rest);
  return parts;
}

std::optional<std::string> UrlParts::percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) {
      return std::nullopt;
    }
    int high = g_ascii_xdigit_value(text[i + 1]);
    int low = g_ascii_xdigit_value(text[i + 2]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

}  // namespace vorna::app
