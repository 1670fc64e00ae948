#pragma once

#include <string>
#include <variant>

#include "bridge/PathRefusal.h"
#include "bridge/WorkspaceBoundary.h"
#include "contracts/BridgeRequest.h"

namespace vorna::bridge {

// The item a path parameter names, under the workspace root as opened, or the
// refusal to answer with.
using TargetResult = std::variant<std::string, PathRefusal>;

// Checks the query parameter `key` of `request` (in practice "path", or "to"
// for a rename). Every refusal is status 400 with the error body
// {"error": message}; the message names the parameter, never the value sent:
//   "missing {key}"                  no such parameter, or an empty value
//   "{key} must be absolute"         the value does not begin with "/"
//   "{key} is outside the workspace" it cannot be resolved (more than 64
//                                    links, a loop, a NUL byte) or resolves
//                                    to a place outside the workspace
// Reads symbolic links only; safe on any thread.
TargetResult resolveTarget(const WorkspaceBoundary& boundary,
                           const contracts::BridgeRequest& request, const std::string& key);

}  // namespace vorna::bridge
