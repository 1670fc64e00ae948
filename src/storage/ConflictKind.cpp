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

}  // namespace vorna::storage
