#include "bridge/NaturalOrder.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "contracts/GUniquePtr.h"

namespace vorna::bridge {
namespace {}  // namespace

std::string naturalSortKey(std::string_view name) {
  contracts::GText folded(g_utf8_casefold(name.data(), static_cast<gssize>(name.size())));
  contracts::GText key(g_utf8_collate_key_for_filename(folded.get(), -1));
  return std::string(key.get());
}

void sortNaturally(std::vector<std::string>& names) {
  // Each key is made once; building keys inside the comparison would redo the
  // case folding and collation O(n log n) times.
  std::vector<std::pair<std::string, std::string>> keyed;
  keyed.reserve(names.size());
  for (std::string& name : names) {
    std::string key = naturalSortKey(name);
    keyed.emplace_back(std::move(key), std::move(name));
  }
  std::stable_sort(keyed.begin(), keyed.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (size_t i = 0; i < keyed.size(); ++i) {
    names[i] = std::move(keyed[i].second);
  }
}

}  // namespace vorna::bridge
