#pragma once

#include <map>
#include <string>

#include "contracts/ConflictRecord.h"
#include "contracts/Json.h"

namespace vorna::recovery {

// One element of conflicts.json: the public record and, for each candidate id,
// the payload file holding that candidate's bytes. Every candidate's id is a
// key of `payloads`, and a candidate id is the id of its retained entry, so it
// is unique across the store.
struct ConflictEntry {
  contracts::ConflictRecord record;
  std::map<std::string, std::string> payloads;

  // {"payloads", "record"}
  contracts::Json toJson() const;
  // Both keys are required; every value of "payloads" must be a string.
  // Throws contracts::DecodeError.
  static ConflictEntry fromJson(const contracts::Json& json);

  bool operator==(const ConflictEntry&) const = default;
};

}  // namespace vorna::recovery
