#pragma once

#include <map>
#include <string>
#include <string_view>

namespace vorna::app {

// The Content-Type of the editor's files and of pages served by extension.
struct MIME {
  MIME() = delete;

  // Lower-case extension (without the dot) to Content-Type; 29 entries.
  static const std::map<std::string, std::string, std::less<>>& byExtension();

  // The type for an extension in any case; "application/octet-stream" for an
  // unknown or empty one.
  static std::string contentType(std::string_view extension);
};

}  // namespace vorna::app
