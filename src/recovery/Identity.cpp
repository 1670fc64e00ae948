#include "recovery/Identity.h"

#include "contracts/RecordFields.h"

namespace vorna::recovery {

namespace fields = contracts::fields;

contracts::Json Identity::toJson() const {
  return {{"workspaceID", workspaceID},
          {"workspacePath", workspacePath},
          {"createdAt", contracts::formatIsoDate(createdAt)}};
}

Identity Identity::fromJson(const contracts::Json& json) {
  fields::requireObject(json);
  return Identity{
      .workspaceID = fields::readString(json, "workspaceID"),
      .workspacePath = fields::readString(json, "workspacePath"),
      .createdAt = fields::readDate(json, "createdAt"),
  };
}

}  // namespace vorna::recovery
