#pragma once

#include <string>
#include <string_view>

// Pure string work on absolute paths; nothing here touches the disk.
namespace vorna::storage {

// The folder holding `path`: "/w/index.html" -> "/w", "/index.html" -> "/".
std::string parentFolder(std::string_view path);
// The last component: "/w/index.html" -> "index.html".
std::string lastComponent(std::string_view path);
// `folder` + "/" + `name`, without doubling the slash of "/".
std::string joinPath(std::string_view folder, std::string_view name);

}  // namespace vorna::storage
