#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vorna::app {

// A folder to open, and optionally the page to show in it.
struct PageTarget {
  std::optional<std::string> folder;  // standardized
  std::optional<std::string> page;    // a file name inside `folder`

  bool operator==(const PageTarget&) const = default;
};

// An existing folder opens as itself; an existing page opens in its folder;
// anything else (a missing path, a file that is not a page) gives neither.
// A relative path is taken from the current folder.
PageTarget target(const std::string& path);

// What a request from the desktop to open paths asks for: the target of the
// first path that names a folder or a page, or nothing when none does.
std::optional<PageTarget> openRequestTarget(const std::vector<std::string>& paths);

}  // namespace vorna::app
