#include "storage/RecoveryEntry.h"

#include "contracts/RecordFields.h"

namespace vorna::storage {
namespace {

using contracts::DecodeError;
using contracts::Json;

bool readBool(const Json& object, std::string_view key) {
  auto found = object.find(key);
  if (found == object.end() || found->is_null()) {
    throw DecodeError("missing key: " + std::string(key));
  }
  if (!found->is_boolean()) {
    throw DecodeError("wrong type for key: " + std::string(key));
  }
  return found->get<bool>();
}

std::optional<Fingerprint> readFingerprint(const Json& object) {
  auto found = object.find("fingerprint");
  if (found == object.end() || found->is_null()) {
    return std::nullopt;
  }
  std::optional<Fingerprint> fingerprint = Fingerprint::fromJson(*found);
  if (!fingerprint) {
    throw DecodeError("wrong type for key: fingerprint");
  }
  return fingerprint;
}

}  // namespace

Json RecoveryEntry::toJson() const {
  Json object = {
      {"id", id},
      {"kind", recoveryKindName(kind)},
      {"pagePath", pagePath},
      {"payloadPath", payloadPath},
      {"byteCount", byteCount},
      {"fingerprintStabilized", fingerprintStabilized},
      {"movedByCopy", movedByCopy},
      {"capturedAt", contracts::formatIsoDate(capturedAt)},
  };
  if (fingerprint) {
    object["fingerprint"] = fingerprint->toJson();
  }
  return object;
}

RecoveryEntry RecoveryEntry::fromJson(const Json& json) {
  namespace fields = contracts::fields;
  fields::requireObject(json);
  return RecoveryEntry{
      .id = fields::readString(json, "id"),
      .kind = fields::readEnum<RecoveryKind>(json, "kind", recoveryKindFromName),
      .pagePath = fields::readString(json, "pagePath"),
      .payloadPath = fields::readString(json, "payloadPath"),
      .fingerprint = readFingerprint(json),
      .byteCount = fields::readInt64(json, "byteCount"),
      .fingerprintStabilized = readBool(json, "fingerprintStabilized"),
      .movedByCopy = readBool(json, "movedByCopy"),
      .capturedAt = fields::readDate(json, "capturedAt"),
  };
}

}  // namespace vorna::storage
