#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace vorna::contracts {

// The JSON value type of the whole system. Its objects keep their keys sorted,
// which is the order every text the host writes must have.
using Json = nlohmann::json;

// The one JSON writer of the system: compact, keys of every map in ascending
// byte order, every "/" inside a string written as "\/". Returns "{}" when the
// value cannot be written (for example a string that is not valid UTF-8).
std::string writeJson(const Json& value);

// Parses a JSON text; nothing when it is not well-formed JSON.
std::optional<Json> parseJson(std::string_view text);

}  // namespace vorna::contracts
