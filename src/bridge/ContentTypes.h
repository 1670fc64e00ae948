#pragma once

#include <string_view>

namespace vorna::bridge {

// The "Content-Type" of a file answer, decided by the file's extension alone:
// the editor only needs it to treat pages, styles, scripts and images right,
// and the bytes are never sniffed.
struct ContentTypes {
  ContentTypes() = delete;

  // Served for every extension without an entry, and for names without one.
  static constexpr std::string_view fallback = "application/octet-stream";

  // The entry for an extension given in lower case ("html"), or `fallback`.
  static std::string_view forExtension(std::string_view lowerCasedExtension);
  // The entry for the path's extension in any letter case ("a.HTML" is html).
  static std::string_view forPath(std::string_view path);
};

}  // namespace vorna::bridge
