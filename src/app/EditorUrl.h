#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorna::app {

// The address of the editor page: "vorna://app/index.html", with the open
// folder as "?path=" and its page as "&open=" (a page without a folder is
// ignored). Both values are percent-encoded by `percentEncoded`.
std::string editorUrl(const std::optional<std::string>& folder,
                      const std::optional<std::string>& page);

// Every byte percent-encoded ("%XX", upper-case hex) except the characters of
// "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/".
std::string percentEncoded(std::string_view text);

}  // namespace vorna::app
