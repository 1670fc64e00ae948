#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recovery/PathForms.h"
#include "storage/FileSystem.h"

namespace vorna::bridge {

// Confines paths chosen by web content to the workspace folder, and re-expresses
// an inside path under the root exactly as the user opened it.
//
// On Linux a name is a string of bytes: names are compared byte for byte, with
// no case folding and no Unicode normalisation, so two differently encoded
// spellings of one accented name are two different names (as they are to the
// kernel).
//
// An immutable value; its operations only read symbolic links and may run on
// any thread at once.
class WorkspaceBoundary {
 public:
  // Resolves the root once; a root that is later replaced by a link keeps the
  // canonical path computed here. Trailing slashes are dropped from the root
  // (except from "/" itself), so answers never carry a doubled slash.
  explicit WorkspaceBoundary(std::string root, storage::FileSystem& fs = storage::FileSystem::real());

  // The workspace folder as opened (may itself pass through links).
  const std::string& root() const { return root_; }
  // recovery::canonicalPath(root), or root unchanged when that fails.
  const std::string& canonicalRootPath() const { return canonicalRootPath_; }

  // True when `path`, resolved (or unchanged when resolution fails), is the root.
  bool isRoot(const std::string& path) const;
  // For an already canonical path inside the workspace: the same item under
  // root(); nothing for a path outside. Inside means equal to
  // canonicalRootPath() or continuing it with "/" (/w/site2 is not inside
  // /w/site); when the root is "/" every absolute path is inside.
  std::optional<std::string> rebase(const std::string& canonicalPath) const;
  // rebase(recovery::canonicalPath(path)): the path under root() that `path` leads to, or
  // nothing when it cannot be resolved or lies outside.
  std::optional<std::string> resolveInside(const std::string& path) const;
  // The components after the root of `path` once resolved; empty for the root
  // itself; nothing when resolution fails or the result lies outside.
  std::optional<std::vector<std::string>> relativeComponents(const std::string& path) const;

 private:
  // The part of a canonical path after the root and its "/": empty for the
  // root itself, nothing for a path outside.
  std::optional<std::string_view> remainderOf(std::string_view canonicalPath) const;

  std::string root_;
  std::string canonicalRootPath_;
  storage::FileSystem* fs_;
};

}  // namespace vorna::bridge
