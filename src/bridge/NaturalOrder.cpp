#include "bridge/NaturalOrder.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>

#include "contracts/GUniquePtr.h"

namespace vorna::bridge {

std::string naturalSortKey(std::string_view name) {
  contracts::GText folded(g_utf8_casefold(name.data(), static_cast<gssize>(name.size())));
  contracts::GText key(g_utf8_collate_key_for_filename(folded.get(), -1));
  return std::string(key.get());
}

std::vector<size_t> naturalOrder(const std::vector<std::string>& names) {
  // Each key is made once; building keys inside the comparison would redo the
  // case folding and collation O(n log n) times.
  std::vector<std::string> keys;
  keys.reserve(names.size());
  for (const std::string& name : names) {
    keys.push_back(naturalSortKey(name));
  }
  std::vector<size_t> order(names.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&keys](size_t a, size_t b) { return keys[a] < keys[b]; });
  return order;
}

void sortNaturally(std::vector<std::string>& names) {
  std::vector<std::string> sorted;
  sorted.reserve(names.size());
  for (size_t index : naturalOrder(names)) {
    sorted.push_back(std::move(names[index]));
  }
  names = std::move(sorted);
}

}  // namespace vorna::bridge
