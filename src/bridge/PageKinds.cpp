#include "bridge/PageKinds.h"

#include <algorithm>
#include <string>

#include "bridge/PathExtension.h"

namespace vorna::bridge {

bool PageKinds::isPage(std::string_view path) {
  std::string extension = lowerCasedExtension(path);
  return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

}  // namespace vorna::bridge
