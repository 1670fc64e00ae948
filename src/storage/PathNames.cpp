#include "storage/PathNames.h"

namespace vorna::storage {

std::string parentFolder(std::string_view path) {
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    return ".";
  }
  return slash == 0 ? "/" : std::string(path.substr(0, slash));
}

std::string lastComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string joinPath(std::string_view folder, std::string_view name) {
  std::string joined(folder);
  if (joined.empty() || joined.back() != '/') {
    joined += '/';
  }
  joined += name;
  return joined;
}

}  // namespace vorna::storage
