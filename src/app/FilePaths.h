#pragma once

#include <string>

namespace vorna::app {

// Path helpers of the shell. Paths are plain strings of bytes; nothing here
// touches the disk except the two existence tests.

// Absolute (a relative path is taken from the current folder) and lexically
// normal: "." and empty components gone, ".." folded (never above "/"), no
// trailing "/" except for the root itself. Symbolic links are left alone.
std::string standardizedPath(const std::string& path);

// The last component's extension without the dot, lower-cased; "" when none.
std::string lowerExtension(const std::string& path);

// True when the path names a folder, or a regular file, following links.
bool isDirectory(const std::string& path);
bool isRegularFile(const std::string& path);

}  // namespace vorna::app
