#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "contracts/Json.h"

namespace vorna::contracts {

// A change the watcher saw in the workspace, on its way into the page.
struct WorkspaceChange {
  enum class Kind { modified, created, removed, renamed };

  Kind kind = Kind::modified;
  std::string path;                        // absolute, under the workspace root as opened
  std::optional<std::string> fingerprint;  // of the new content, when known

  static std::string_view kindName(Kind kind);

  // {"type":"changed","kind":…,"path":…[,"fingerprint":…]}
  Json jsonObject() const;

  bool operator==(const WorkspaceChange&) const = default;
};

}  // namespace vorna::contracts
