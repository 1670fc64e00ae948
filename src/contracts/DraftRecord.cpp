#include "contracts/DraftRecord.h"

#include "contracts/RecordFields.h"

namespace vorna::contracts {

Json DraftRecord::toJson() const {
  Json object = {{"id", id},
                 {"pagePath", pagePath},
                 {"fingerprint", fingerprint},
                 {"byteCount", byteCount},
                 {"capturedAt", formatIsoDate(capturedAt)}};
  fields::writeOptional(object, "baseFingerprint", baseFingerprint);
  return object;
}

DraftRecord DraftRecord::fromJson(const Json& json) {
  fields::requireObject(json);
  return DraftRecord{
      .id = fields::readString(json, "id"),
      .pagePath = fields::readString(json, "pagePath"),
      .baseFingerprint = fields::readOptionalString(json, "baseFingerprint"),
      .fingerprint = fields::readString(json, "fingerprint"),
      .byteCount = fields::readInt64(json, "byteCount"),
      .capturedAt = fields::readDate(json, "capturedAt"),
  };
}

}  // namespace vorna::contracts
