#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace vorna::contracts {

// The raw names of a closed set of values, as they appear verbatim in JSON.
//
//   constexpr EnumNames<Role, 3> kRoleNames{{{
//       {Role::base, "base"}, {Role::editor, "editor"}, {Role::disk, "disk"}}}};
//
// name() of a value missing from the table is "" (a table lists every value).
template <typename Enum, std::size_t N>
struct EnumNames {
  std::array<std::pair<Enum, std::string_view>, N> entries;

  constexpr std::string_view name(Enum value) const {
    for (const auto& [candidate, text] : entries) {
      if (candidate == value) {
        return text;
      }
    }
    return {};
  }

  // Only an exact, case-sensitive match of a raw name.
  constexpr std::optional<Enum> fromName(std::string_view text) const {
    for (const auto& [value, candidate] : entries) {
      if (candidate == text) {
        return value;
      }
    }
    return std::nullopt;
  }
};

}  // namespace vorna::contracts
