#pragma once

#include <optional>

#include "storage/Fingerprint.h"
#include "storage/RecoveryEntry.h"

namespace vorna::storage {

// A save that went through: the page now holds exactly the new bytes.
struct SavedInfo {
  Fingerprint fingerprint;  // of the new bytes; the editor's next expected version
  // The entry holding the version the save replaced (kind displacedExpected);
  // none for adapters that retain nothing.
  std::optional<RecoveryEntry> displaced;
  // The copy of the new bytes taken before the page was touched (kind
  // pendingEditorBytes); only when the adapter retains pending bytes.
  std::optional<RecoveryEntry> pending;

  bool operator==(const SavedInfo&) const = default;
};

}  // namespace vorna::storage
