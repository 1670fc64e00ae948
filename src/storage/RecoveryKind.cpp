#include "storage/RecoveryKind.h"

namespace vorna::storage {

std::string_view recoveryKindName(RecoveryKind kind) {
  switch (kind) {
    case RecoveryKind::pendingEditorBytes:
      return "pendingEditorBytes";
    case RecoveryKind::displacedExpected:
      return "displacedExpected";
    case RecoveryKind::displacedExternal:
      return "displacedExternal";
    case RecoveryKind::editorBytesWithdrawn:
      return "editorBytesWithdrawn";
  }
  return "pendingEditorBytes";
}

std::optional<RecoveryKind> recoveryKindFromName(std::string_view name) {
  for (RecoveryKind kind : {RecoveryKind::pendingEditorBytes, RecoveryKind::displacedExpected,
                            RecoveryKind::displacedExternal, RecoveryKind::editorBytesWithdrawn}) {
    if (recoveryKindName(kind) == name) {
      return kind;
    }
  }
  return std::nullopt;
}

}  // namespace vorna::storage
