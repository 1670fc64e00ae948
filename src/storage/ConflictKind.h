#pragma once

#include <string_view>

namespace vorna::storage {

// Why a save became a conflict. The raw names travel to the editor.
enum class ConflictKind {
  // Naive adapter: before writing, the page was not the expected version or
  // could not be read.
  staleFingerprintPrecheck,
  // Safe adapter: the version its exchange displaced was not the expected one.
  externalVersion,
  // Safe adapter: the save went through, but the page read back differs from
  // the new bytes.
  overwrittenAfterWrite,
};

// "staleFingerprintPrecheck", "externalVersion", "overwrittenAfterWrite".
std::string_view conflictKindName(ConflictKind kind);

}  // namespace vorna::storage
