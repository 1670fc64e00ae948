#include "recovery/ConflictEntry.h"

#include "contracts/RecordFields.h"

namespace vorna::recovery {

using contracts::DecodeError;
using contracts::Json;

contracts::Json ConflictEntry::toJson() const {
  Json map = Json::object();
  for (const auto& [id, path] : payloads) {
    map[id] = path;
  }
  return {{"record", record.toJson()}, {"payloads", map}};
}

ConflictEntry ConflictEntry::fromJson(const Json& json) {
  contracts::fields::requireObject(json);
  auto record = json.find("record");
  if (record == json.end() || record->is_null()) {
    throw DecodeError("missing key: record");
  }
  auto payloads = json.find("payloads");
  if (payloads == json.end() || payloads->is_null()) {
    throw DecodeError("missing key: payloads");
  }
  if (!payloads->is_object()) {
    throw DecodeError("wrong type for key: payloads");
  }
  ConflictEntry entry{.record = contracts::ConflictRecord::fromJson(*record), .payloads = {}};
  for (const auto& [id, path] : payloads->items()) {
    if (!path.is_string()) {
      throw DecodeError("wrong type for key: payloads");
    }
    entry.payloads.emplace(id, path.get<std::string>());
  }
  return entry;
}

}  // namespace vorna::recovery
