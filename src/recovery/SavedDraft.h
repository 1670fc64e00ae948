#pragma once

#include <string>

#include "contracts/DraftRecord.h"

namespace vorna::recovery {

// A draft just kept, with where its bytes lie in the retention store, so that
// a caller that adopts those bytes need not look the draft up again.
struct SavedDraft {
  contracts::DraftRecord record;
  std::string payloadPath;
};

}  // namespace vorna::recovery
