#pragma once

#include <string>
#include <string_view>
#include <vector>

// The order in which a desktop file manager lists names: letter case ignored,
// runs of digits compared by their numeric value (page2 before page10).
namespace vorna::bridge {

// A byte string whose plain comparison gives the natural order of the names it
// was made from: the name case-folded, then turned into GLib's collation key
// for file names (which compares digit runs by value, in the current locale's
// collation). `name` must be valid UTF-8.
std::string naturalSortKey(std::string_view name);

// The positions of valid UTF-8 names taken in natural order, each key made
// once. Stable: names whose keys are equal keep the order they came in, which
// for a listing is the folder's own.
std::vector<size_t> naturalOrder(const std::vector<std::string>& names);

// Sorts valid UTF-8 names into natural order, stably.
void sortNaturally(std::vector<std::string>& names);

}  // namespace vorna::bridge
