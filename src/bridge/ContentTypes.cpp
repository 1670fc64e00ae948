#include "bridge/ContentTypes.h"

#include <array>
#include <utility>

#include "bridge/PathExtension.h"

namespace vorna::bridge {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 12> kTypes{{
    {"html", "text/html; charset=utf-8"},
    {"css", "text/css; charset=utf-8"},
    {"js", "text/javascript; charset=utf-8"},
    {"json", "application/json"},
    {"svg", "image/svg+xml"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"woff2", "font/woff2"},
    {"md", "text/markdown; charset=utf-8"},
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
