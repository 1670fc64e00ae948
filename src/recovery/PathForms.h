#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "storage/FileSystem.h"

// The forms in which paths are compared: as text, and as the file system
// resolves them.
namespace vorna::recovery {

// The path made absolute (against the working folder) with "." and ".."
// components and repeated or trailing slashes removed; ".." above the root
// stays at the root. Symbolic links are not looked at, so this is pure text.
std::string standardisedPath(std::string_view path);

// Resolves an absolute path as the file system would: folds "." and "..",
// follows every symbolic link (at most 64); components that do not exist are
// kept as plain names, so a folder yet to be created resolves to where it will
// appear. Nothing for a relative path, past 64 links (so a loop fails too),
// for a path holding a NUL byte, or for a result of PATH_MAX (4096) bytes or
// more: none of these names anything a system call reaches. Only readlink is
// asked of `fs`, once per component, but not below a component found missing
// (until ".." climbs back above it), so the time taken stays linear in the
// length of the path.
std::optional<std::string> canonicalPath(std::string_view path, storage::FileSystem& fs);

// canonicalPath(standardisedPath(path)), or the standardised path when that
// fails; never fails.
std::string resolvedPath(std::string_view path, storage::FileSystem& fs);

// True when `path` is `folder` or lies below it (/w/site2 is not below
// /w/site); every absolute path lies below "/".
bool isSameOrInside(std::string_view path, std::string_view folder);

}  // namespace vorna::recovery
