#include "app/PageTarget.h"

#include <glib.h>

#include "app/FilePaths.h"

namespace vorna::app {

bool isPageExtension(const std::string& extension) {
  return g_ascii_strcasecmp(extension.c_str(), "html") == 0 ||
         g_ascii_strcasecmp(extension.c_str(), "htm") == 0;
}

PageTarget target(const std::string& path) {
  std::string standard = standardizedPath(path);
  if (isDirectory(standard)) {
    return {standard, std::nullopt};
  }
  if (isRegularFile(standard) && isPageExtension(lowerExtension(standard))) {
    size_t slash = standard.rfind('/');
    std::string folder = slash == 0 ? "/" : standard.substr(0, slash);
    return {folder, standard.substr(slash + 1)};
  }
  return {};
}

std::optional<PageTarget> openRequestTarget(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    PageTarget found = target(path);
    if (found.folder) {
      return found;
    }
  }
  return std::nullopt;
}

}  // namespace vorna::app
