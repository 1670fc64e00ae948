#pragma once

#include <string_view>

namespace vorna::storage {

// True when `bytes` is well-formed UTF-8: no stray continuation bytes, no
// sequence cut short, no overlong forms, no surrogates, nothing above U+10FFFF.
// Linux names are bytes, so names taken from the disk must be checked before
// they are written into JSON or cut.
bool isValidUtf8(std::string_view bytes);

}  // namespace vorna::storage
