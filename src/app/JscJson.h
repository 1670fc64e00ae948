#pragma once

#include <optional>

#include "contracts/Json.h"

typedef struct _JSCValue JSCValue;

namespace vorna::app {

// A script message's value as JSON, read member by member (no JSON text in
// between, so a large string is copied once). Objects keep their string-keyed
// members; undefined members and functions are left out, as JSON.stringify
// does; numbers that are whole and fit become integers. Nesting deeper than
// 64 levels (a cycle, for one) becomes null there. Nothing for undefined.
// Main thread.
std::optional<contracts::Json> jsonFromJsc(JSCValue* value);

}  // namespace vorna::app
