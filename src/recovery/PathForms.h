#pragma once

#include <string>
#include <string_view>

#include "storage/FileSystem.h"

// The two forms in which the service compares paths.
namespace vorna::recovery {

// The path made absolute (against the working folder) with "." and ".."
// components and repeated or trailing slashes removed; ".." above the root
// stays at the root. Symbolic links are not looked at, so this is pure text.
std::string standardisedPath(std::string_view path);

// The standardised path with every symbolic link in it resolved, as far as its
// components exist; the missing rest is appended as text. So a folder that is
// yet to be created resolves to where it will appear. A chain of links that
// does not end (more than 40 hops) leaves the path standardised but otherwise
// unresolved. Reads links through `fs`; never fails.
std::string resolvedPath(std::string_view path, storage::FileSystem& fs);

// True when `path` is `folder` or lies below it.
bool isSameOrInside(std::string_view path, std::string_view folder);

}  // namespace vorna::recovery
