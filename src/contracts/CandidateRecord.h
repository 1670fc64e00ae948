#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"

namespace vorna::contracts {

// One version of a page that a conflict offers for the user to choose.
struct CandidateRecord {
  // Which version a candidate is; written as its raw name.
  enum class Role {
    base,    // the version both sides started from
    editor,  // the editor's unsaved bytes
    disk,    // the version found on disk
  };

  std::string id;
  Role role = Role::base;
  std::string fingerprint;  // of the candidate's bytes
  std::int64_t byteCount = 0;
  Timestamp capturedAt;

  static std::string_view roleName(Role role);
  // Only the exact raw strings "base", "editor", "disk".
  static std::optional<Role> roleFromName(std::string_view name);

  Json toJson() const;
  // Throws DecodeError when `json` does not have the shape toJson writes.
  static CandidateRecord fromJson(const Json& json);

  bool operator==(const CandidateRecord&) const = default;
};

}  // namespace vorna::contracts
