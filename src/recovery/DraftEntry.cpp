#include "recovery/DraftEntry.h"

#include "contracts/RecordFields.h"

namespace vorna::recovery {

namespace fields = contracts::fields;
using contracts::DecodeError;
using contracts::Json;

namespace {

const Json& required(const Json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || found->is_null()) {
    throw DecodeError(std::string("missing key: ") + key);
  }
  return *found;
}

}  // namespace

Json DraftEntry::toJson() const {
  return {{"record", record.toJson()}, {"payloadPath", payloadPath}, {"discarded", discarded}};
}

DraftEntry DraftEntry::fromJson(const Json& json) {
  fields::requireObject(json);
  const Json& flag = required(json, "discarded");
  if (!flag.is_boolean()) {
    throw DecodeError("wrong type for key: discarded");
  }
  return DraftEntry{
      .record = contracts::DraftRecord::fromJson(required(json, "record")),
      .payloadPath = fields::readString(json, "payloadPath"),
      .discarded = flag.get<bool>(),
  };
}

}  // namespace vorna::recovery
