#include "bridge/PathExtension.h"

namespace vorna::bridge {

std::string_view pathExtension(std::string_view path) {
  size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) {
    return {};
  }
  return name.substr(dot + 1);
}

std::string lowerCasedExtension(std::string_view path) {
  std::string extension(pathExtension(path));
  for (char& c : extension) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return extension;
}

}  // namespace vorna::bridge
