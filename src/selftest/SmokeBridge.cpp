#include "selftest/SmokeBridge.h"

#include <dirent.h>
#include <glib.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "bridge/ContentTypes.h"
#include "bridge/ItemFacts.h"
#include "bridge/PathExtension.h"
#include "recovery/PathForms.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"

namespace vorna::selftest {

using contracts::BridgeResponse;
using contracts::Json;

SmokeBridge::SmokeBridge(const std::string& workspaceRoot)
    : workspaceRoot_(recovery::standardisedPath(workspaceRoot)), boundary_(workspaceRoot_) {}

contracts::BridgeResponse SmokeBridge::handle(const contracts::BridgeRequest& request) {
  const std::string& method = request.method;
  if (method == "PUT" || method == "POST") {
    return BridgeResponse::json(
        200, {{"method", method}, {"op", request.op}, {"bytes", request.body.size()}});
  }
  if (method != "GET" && method != "HEAD") {
    return BridgeResponse::error(405, "smoke bridge is read-only: " + method);
  }
  auto query = request.query.find("path");
  if (query == request.query.end() || query->second.empty()) {
    return BridgeResponse::error(400, "path is required");
  }
  if (query->second.front() != '/') {
    return BridgeResponse::error(400, "path must be absolute");
  }
  std::optional<std::string> path = contained(query->second);
  if (!path) {
    return BridgeResponse::error(400, "path is outside the workspace");
  }

  if (request.op == "list") {
    std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path->c_str()), ::closedir);
    if (!folder) {
      return BridgeResponse::error(404, "not found: " + *path);
    }
    std::vector<std::pair<std::string, bool>> entries;
    while (dirent* entry = ::readdir(folder.get())) {
      std::string name = entry->d_name;
      if (name.empty() || name.front() == '.') {
        continue;
      }
      entries.emplace_back(name, (bridge::kindOf(*path + "/" + name, storage::FileSystem::real()) ==
                                  bridge::ItemKind::directory));
    }
    std::sort(entries.begin(), entries.end());
    Json list = Json::array();
    for (const auto& [name, folderFlag] : entries) {
      list.push_back({{"name", name}, {"kind", folderFlag ? "directory" : "file"}});
    }
    return BridgeResponse::json(200, list);
  }
  if (request.op == "file") {
    contracts::Bytes bytes;
    try {
      bytes = storage::readFileWhole(*path);
    } catch (const storage::FileOpError&) {
      return BridgeResponse::error(404, "not found: " + *path);
    }
    return BridgeResponse{200,
                          {{"Content-Type", std::string(bridge::ContentTypes::forPath(*path))}},
                          std::move(bytes)};
  }
  return BridgeResponse::error(404, "smoke bridge has no op " + request.op);
}

}  // namespace vorna::selftest
