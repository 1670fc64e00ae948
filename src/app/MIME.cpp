#include "app/MIME.h"

#include <glib.h>

namespace vorna::app {

const std::map<std::string, std::string, std::less<>>& MIME::byExtension() {
  static const std::map<std::string, std::string, std::less<>> table = {
      {"html", "text/html; charset=utf-8"},
      {"htm", "text/html; charset=utf-8"},
      {"css", "text/css; charset=utf-8"},
      {"js", "text/javascript; charset=utf-8"},
      {"mjs", "text/javascript; charset=utf-8"},
      {"json", "application/json"},
      {"map", "application/json"},
      {"txt", "text/plain; charset=utf-8"},
      {"md", "text/markdown; charset=utf-8"},
      {"svg", "image/svg+xml"},
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"webp", "image/webp"},
      {"avif", "image/avif"},
      {"ico", "image/vnd.microsoft.icon"},
      {"woff", "font/woff"},
      {"woff2", "font/woff2"},
      {"ttf", "font/ttf"},
      {"otf", "font/otf"},
      {"wasm", "application/wasm"},
      {"mp4", "video/mp4"},
      {"webm", "video/webm"},
      {"mp3", "audio/mpeg"},
      {"wav", "audio/wav"},
      {"pdf", "application/pdf"},
      {"xml", "application/xml"},
      {"csv", "text/csv; charset=utf-8"},
  };
  return table;
}

std::string MIME::contentType(std::string_view extension) {
  std::string lowered(extension);
  for (char& c : lowered) {
    c = g_ascii_tolower(c);
  }
  const auto& table = byExtension();
  auto found = table.find(lowered);
  return found == table.end() ? "application/octet-stream" : found->second;
}

}  // namespace vorna::app
