#include "bridge/ContentTypes.h"

#include <array>
#include <utility>

#include "bridge/PathExtension.h"

namespace vorna::bridge {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 29> kTypes{{
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
}};

}  // namespace

std::string_view ContentTypes::forExtension(std::string_view lowerCasedExtension) {
  for (const auto& [extension, type] : kTypes) {
    if (extension == lowerCasedExtension) {
      return type;
    }
  }
  return fallback;
}

std::string_view ContentTypes::forPath(std::string_view path) {
  return forExtension(lowerCasedExtension(path));
}

}  // namespace vorna::bridge
