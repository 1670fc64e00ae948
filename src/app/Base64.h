#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "contracts/Bytes.h"

namespace vorna::app {

// Standard base64 (RFC 4648 alphabet, "=" padding, no line breaks).
std::string base64Encode(std::string_view bytes);

// Strict decoding: the length must be a multiple of four and every character
// must belong to the alphabet, with "=" only as one or two final padding
// characters. Anything else (whitespace included) is not base64: nothing.
std::optional<contracts::Bytes> base64Decode(std::string_view text);

}  // namespace vorna::app
