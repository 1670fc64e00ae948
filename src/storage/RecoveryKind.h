#pragma once

#include <optional>
#include <string_view>

namespace vorna::storage {

// Why a copy of a page's bytes was retained. The raw names travel to the editor
// and into every sidecar and entry id, so they never change.
enum class RecoveryKind {
  pendingEditorBytes,    // the editor's bytes, copied before the page was touched
  displacedExpected,     // the version the editor expected, moved out by its save
  displacedExternal,     // a version someone else wrote, moved out of the page's place
  editorBytesWithdrawn,  // the editor's bytes, taken back out after a foreign version returned
};

// "pendingEditorBytes", "displacedExpected", "displacedExternal", "editorBytesWithdrawn".
std::string_view recoveryKindName(RecoveryKind kind);
// Only the exact raw names; nothing for any other text (case included).
std::optional<RecoveryKind> recoveryKindFromName(std::string_view name);

}  // namespace vorna::storage
