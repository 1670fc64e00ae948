#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryKind.h"

namespace vorna::storage {

// One retained payload of the recovery store, as its sidecar describes it.
struct RecoveryEntry {
  std::string id;  // also the stem of the payload "{id}.bin" and the sidecar "{id}.json"
  RecoveryKind kind = RecoveryKind::pendingEditorBytes;
  std::string pagePath;     // absolute path of the page the bytes belong to
  std::string payloadPath;  // absolute path of "{id}.bin"
  // Of the payload's bytes; none when they could not be read when retained.
  std::optional<Fingerprint> fingerprint;
  int64_t byteCount = 0;
  // Taken from bytes that could not change (in memory), or two readings agreed.
  bool fingerprintStabilized = false;
  // The payload is a copy made across file systems, not the moved file itself.
  bool movedByCopy = false;
  contracts::Timestamp capturedAt;  // on a whole second, so it survives the sidecar

  // The sidecar object: one key per field, "fingerprint" only when present,
  // "capturedAt" as ISO 8601 text.
  contracts::Json toJson() const;
  // Throws contracts::DecodeError naming the offending key when `json` is not
  // the shape toJson writes.
  static RecoveryEntry fromJson(const contracts::Json& json);

  bool operator==(const RecoveryEntry&) const = default;
};

}  // namespace vorna::storage
