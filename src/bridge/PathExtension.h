#pragma once

#include <string>
#include <string_view>

// The extension of an item's name, which decides its content type, whether it
// is a page and whether a folder is a bundle.
namespace vorna::bridge {

// The text after the last "." of the path's last component: "a/b.tar.gz" ->
// "gz". Empty when the name has no ".", ends in one, or its only "." leads the
// name (".htaccess" names a hidden file, not an extension).
std::string_view pathExtension(std::string_view path);

// pathExtension with ASCII letters lower-cased; other bytes are kept, so a name
// that is not valid UTF-8 never fails here.
std::string lowerCasedExtension(std::string_view path);

}  // namespace vorna::bridge
