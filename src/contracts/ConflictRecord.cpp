#include "contracts/ConflictRecord.h"

#include "contracts/RecordFields.h"

namespace vorna::contracts {

Json ConflictRecord::toJson() const {
  Json object = {{"id", id},
                 {"pagePath", pagePath},
                 {"candidates", fields::toJsonArray(candidates)},
                 {"openedAt", formatIsoDate(openedAt)}};
  fields::writeOptionalDate(object, "resolvedAt", resolvedAt);
  fields::writeOptional(object, "chosenCandidateID", chosenCandidateID);
  return object;
}

ConflictRecord ConflictRecord::fromJson(const Json& json) {
  fields::requireObject(json);
  ConflictRecord record;
  record.id = fields::readString(json, "id");
  record.pagePath = fields::readString(json, "pagePath");
  record.candidates = fields::readRecords<CandidateRecord>(json, "candidates");
  record.openedAt = fields::readDate(json, "openedAt");
  record.resolvedAt = fields::readOptionalDate(json, "resolvedAt");
  record.chosenCandidateID = fields::readOptionalString(json, "chosenCandidateID");
  return record;
}

}  // namespace vorna::contracts
