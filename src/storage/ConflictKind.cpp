#include "storage/ConflictKind.h"

namespace vorna::storage {

std::string_view conflictKindName(ConflictKind kind) {
  switch (kind) {
    case ConflictKind::staleFingerprintPrecheck:
      return "staleFingerprintPrecheck";
    case ConflictKind::externalVersion:
      return "externalVersion";
    case ConflictKind::overwrittenAfterWrite:
      return "overwrittenAfterWrite";
  }
  return "staleFingerprintPrecheck";
}

std::optional<ConflictKind> conflictKindFromName(std::string_view name) {
  for (ConflictKind kind : {ConflictKind::staleFingerprintPrecheck, ConflictKind::externalVersion,
                            ConflictKind::overwrittenAfterWrite}) {
    if (conflictKindName(kind) == name) {
      return kind;
    }
  }
  return std::nullopt;
}

}  // namespace vorna::storage
