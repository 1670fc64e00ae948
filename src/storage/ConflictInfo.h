#pragma once

#include <optional>
#include <vector>

#include "storage/ConflictKind.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryEntry.h"

namespace vorna::storage {

// A save that found (or left) the page at another version than the editor's.
struct ConflictInfo {
  ConflictKind kind = ConflictKind::externalVersion;
  // The version found where the editor's base was expected; none when unreadable.
  std::optional<Fingerprint> observed;
  // The page as the adapter left it; none when unreadable.
  std::optional<Fingerprint> onDiskNow;
  // Every entry written into the recovery store by this save, in the order
  // written, the pending copy (if any) last. Empty only for a precheck conflict.
  std::vector<RecoveryEntry> retained;

  bool operator==(const ConflictInfo&) const = default;
};

}  // namespace vorna::storage
