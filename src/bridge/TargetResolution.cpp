#include "bridge/TargetResolution.h"

namespace vorna::bridge {
namespace {

PathRefusal refuse(std::string message) {
  return PathRefusal{contracts::BridgeResponse::error(400, message)};
}

}  // namespace

TargetResult resolveTarget(const WorkspaceBoundary& boundary,
                           const contracts::BridgeRequest& request, const std::string& key) {
  auto found = request.query.find(key);
  if (found == request.query.end() || found->second.empty()) {
    return refuse("missing " + key);
  }
  const std::string& value = found->second;
  if (value.front() != '/') {
    return refuse(key + " must be absolute");
  }
  std::optional<std::string> inside = boundary.resolveInside(value);
  if (!inside) {
    return refuse(key + " is outside the workspace");
  }
  return std::move(*inside);
}

}  // namespace vorna::bridge
