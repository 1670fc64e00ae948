#pragma once

#include <optional>
#include <string>
#include <vector>

#include "contracts/CandidateRecord.h"
#include "contracts/IsoDate.h"
#include "contracts/Json.h"

namespace vorna::contracts {

// A conflict between versions of one page, open until a candidate is chosen.
struct ConflictRecord {
  std::string id;  // a random UUID, 36 characters, upper case
  std::string pagePath;
  std::vector<CandidateRecord> candidates;
  Timestamp openedAt;
  std::optional<Timestamp> resolvedAt;           // absent while open
  std::optional<std::string> chosenCandidateID;  // absent while open

  // Keys equal the field names; resolvedAt and chosenCandidateID only when present.
  Json toJson() const;
  // Throws DecodeError when `json` or any candidate in it does not have that shape.
  static ConflictRecord fromJson(const Json& json);

  bool operator==(const ConflictRecord&) const = default;
};

}  // namespace vorna::contracts
