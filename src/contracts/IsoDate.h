#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vorna::contracts {

// The dates inside records and sidecars.
using Timestamp = std::chrono::system_clock::time_point;

// ISO 8601 in UTC with whole seconds and "Z", e.g. 2026-11-16T20:25:15Z. A
// fraction of a second is dropped (rounded towards the past), so only a
// timestamp on a whole second survives writing and reading unchanged.
std::string formatIsoDate(Timestamp time);

// Reads exactly the form formatIsoDate writes: "YYYY-MM-DDTHH:MM:SSZ" naming a
// real calendar date and time. Nothing for anything else: fractional seconds,
// another zone or offset, a lower-case "t" or "z", second 60, or a date outside
// what Timestamp can hold (years 1678 to 2262).
std::optional<Timestamp> parseIsoDate(std::string_view text);

// The current time on a whole second, so that a record stamped with it reads
// back equal to itself.
Timestamp wholeSecondsNow();

}  // namespace vorna::contracts
