#include "app/FilePaths.h"

#include <glib.h>
#include <sys/stat.h>

#include <filesystem>

#include "app/GUniquePtr.h"

namespace vorna::app {

std::string standardizedPath(const std::string& path) {
  std::filesystem::path full(path);
  if (!full.is_absolute()) {
    GText current(g_get_current_dir());
    full = std::filesystem::path(current.get()) / full;
  }
  std::string normal = full.lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') {
    normal.pop_back();
  }
  return normal;
}

std::string lowerExtension(const std::string& path) {
  size_t slash = path.rfind('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) {
    return "";
  }
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) {
    c = g_ascii_tolower(c);
  }
  return extension;
}

bool isDirectory(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isRegularFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace vorna::app
