#include "app/PageTarget.h"

#include "bridge/ItemFacts.h"
#include "bridge/PageKinds.h"
#include "recovery/PathForms.h"

namespace vorna::app {

PageTarget target(const std::string& path) {
  std::string standard = recovery::standardisedPath(path);
  if (bridge::kindOf(standard, storage::FileSystem::real()) == bridge::ItemKind::directory) {
    return {standard, std::nullopt};
  }
  if (bridge::isRegularFile(standard, storage::FileSystem::real()) &&
      bridge::PageKinds::isPage(standard)) {
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
