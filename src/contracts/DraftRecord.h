#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"

namespace vorna::contracts {

// An unsaved copy of a page's text that the editor asked the host to keep.
struct DraftRecord {
  std::string id;        // equals the id of the retained payload holding the bytes
  std::string pagePath;  // absolute, standardised
  std::optional<std::string> baseFingerprint;  // the version the editor started from
  std::string fingerprint;                     // of the draft's own bytes
  std::int64_t byteCount = 0;
  Timestamp capturedAt;

  // Keys equal the field names; baseFingerprint only when present.
  Json toJson() const;
  // Throws DecodeError when `json` does not have that shape.
  static DraftRecord fromJson(const Json& json);

  bool operator==(const DraftRecord&) const = default;
};

}  // namespace vorna::contracts
