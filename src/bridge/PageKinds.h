#pragma once

#include <array>
#include <string_view>

namespace vorna::bridge {

// The files the editor edits as pages. Reading or writing one records a load
// checkpoint, so that the version the editor started from can be offered as
// the base of a later conflict.
struct PageKinds {
  PageKinds() = delete;

  // Lower case. "htm" is a page although it has no content type of its own.
  static constexpr std::array<std::string_view, 3> extensions{"html", "htm", "md"};

  // Whether the path's extension, in any letter case, is one of `extensions`.
  static bool isPage(std::string_view path);
};

}  // namespace vorna::bridge
