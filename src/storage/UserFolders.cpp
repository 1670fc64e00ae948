#include "storage/UserFolders.h"

#include <cstdlib>

#include "storage/PathNames.h"

namespace vorna::storage {

std::optional<std::string> xdgFolder(const char* variable, std::string_view underHome) {
  const char* named = std::getenv(variable);
  if (named != nullptr && named[0] == '/') {
    return std::string(named);
  }
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') {
    return joinPath(home, underHome);
  }
  return std::nullopt;
}

}  // namespace vorna::storage
