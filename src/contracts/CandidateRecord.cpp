#include "contracts/CandidateRecord.h"

#include "contracts/EnumNames.h"
#include "contracts/RecordFields.h"

namespace vorna::contracts {
namespace {

using Role = CandidateRecord::Role;

constexpr EnumNames<Role, 3> kRoleNames{
    {{{Role::base, "base"}, {Role::editor, "editor"}, {Role::disk, "disk"}}}};

}  // namespace

std::string_view CandidateRecord::roleName(Role role) {
  return kRoleNames.name(role);
}

std::optional<CandidateRecord::Role> CandidateRecord::roleFromName(std::string_view name) {
  return kRoleNames.fromName(name);
}

Json CandidateRecord::toJson() const {
  return {{"id", id},
          {"role", roleName(role)},
          {"fingerprint", fingerprint},
          {"byteCount", byteCount},
          {"capturedAt", formatIsoDate(capturedAt)}};
}

CandidateRecord CandidateRecord::fromJson(const Json& json) {
  fields::requireObject(json);
  return CandidateRecord{
      .id = fields::readString(json, "id"),
      .role = fields::readEnum<Role>(json, "role", roleFromName),
      .fingerprint = fields::readString(json, "fingerprint"),
      .byteCount = fields::readInt64(json, "byteCount"),
      .capturedAt = fields::readDate(json, "capturedAt"),
  };
}

}  // namespace vorna::contracts
