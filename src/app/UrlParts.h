#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorna::app {

// The pieces of an absolute URL that the shell decides on. Only the split is
// done here: no normalisation beyond lower-casing the scheme.
struct UrlParts {
  std::string scheme;  // lower case, without ":"
  std::string host;    // as written; empty when the URL has no "//" authority
  std::string path;    // still percent-encoded; may be empty
  std::string query;   // without "?"; empty when absent

  // Nothing when the text has no valid scheme ("letter *(letter / digit / + - .)" then ":").
  static std::optional<UrlParts> parse(std::string_view url);

  // Decodes %XX escapes into raw bytes; nothing on a malformed escape.
  static std::optional<std::string> percentDecode(std::string_view text);
};

}  // namespace vorna::app
