#pragma once

#include <string>

#include "contracts/DraftRecord.h"
#include "contracts/Json.h"

namespace vorna::recovery {

// One element of drafts.json. The record's id is the id of the retained entry
// holding the bytes, and payloadPath that entry's payload; several entries may
// name one page, and the last one saved is the page's current draft.
struct DraftEntry {
  contracts::DraftRecord record;
  std::string payloadPath;
  // Set when the page's drafts were discarded; the entry stays until the
  // retention plan drops it together with its payload.
  bool discarded = false;

  // {"discarded", "payloadPath", "record"}
  contracts::Json toJson() const;
  // All three keys are required. Throws contracts::DecodeError.
  static DraftEntry fromJson(const contracts::Json& json);

  bool operator==(const DraftEntry&) const = default;
};

}  // namespace vorna::recovery
