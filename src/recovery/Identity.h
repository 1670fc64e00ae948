#pragma once

#include <string>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"

namespace vorna::recovery {

// The record of identity.json, written once when a store directory is made: it
// ties the directory to the workspace folder that created it, so that a store
// is never used for another folder that happens to get the same identifier.
struct Identity {
  std::string workspaceID;
  std::string workspacePath;  // the canonical path of the workspace folder
  contracts::Timestamp createdAt;

  // {"createdAt", "workspaceID", "workspacePath"}
  contracts::Json toJson() const;
  // Throws contracts::DecodeError naming the offending key.
  static Identity fromJson(const contracts::Json& json);

  bool operator==(const Identity&) const = default;
};

}  // namespace vorna::recovery
