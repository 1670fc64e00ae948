#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorna::storage {

// The per-user folder an XDG base-directory variable names (XDG_DATA_HOME,
// XDG_CONFIG_HOME, XDG_CACHE_HOME), read anew at every call. A relative value
// is ignored, as the base-directory rules require: it would put the folder
// relative to whatever folder the program was started from, and it would be
// lost on the next start from another one. Then $HOME/`underHome` stands.
// Nothing when neither is an absolute path.
std::optional<std::string> xdgFolder(const char* variable, std::string_view underHome);

}  // namespace vorna::storage
