#include "contracts/OperationRecord.h"

#include "contracts/EnumNames.h"
#include "contracts/RecordFields.h"

namespace vorna::contracts {
namespace {

using StepState = OperationRecord::StepState;

constexpr EnumNames<StepState, 3> kStepStateNames{{{{StepState::pending, "pending"},
                                                    {StepState::landed, "landed"},
                                                    {StepState::failed, "failed"}}}};

}  // namespace

std::string_view OperationRecord::stepStateName(StepState state) {
  return kStepStateNames.name(state);
}

std::optional<OperationRecord::StepState> OperationRecord::stepStateFromName(
    std::string_view name) {
  return kStepStateNames.fromName(name);
}

Json OperationRecord::Step::toJson() const {
  Json object = {{"path", path}, {"state", stepStateName(state)}};
  fields::writeOptional(object, "beforeFingerprint", beforeFingerprint);
  fields::writeOptional(object, "afterFingerprint", afterFingerprint);
  return object;
}

OperationRecord::Step OperationRecord::Step::fromJson(const Json& json) {
  fields::requireObject(json);
  return Step{
      .path = fields::readString(json, "path"),
      .beforeFingerprint = fields::readOptionalString(json, "beforeFingerprint"),
      .afterFingerprint = fields::readOptionalString(json, "afterFingerprint"),
      .state = fields::readEnum<StepState>(json, "state", stepStateFromName),
  };
}

Json OperationRecord::toJson() const {
  Json object = {{"id", id},
                 {"label", label},
                 {"steps", fields::toJsonArray(steps)},
                 {"startedAt", formatIsoDate(startedAt)}};
  fields::writeOptionalDate(object, "finishedAt", finishedAt);
  return object;
}

OperationRecord OperationRecord::fromJson(const Json& json) {
  fields::requireObject(json);
  OperationRecord record;
  record.id = fields::readString(json, "id");
  record.label = fields::readString(json, "label");
  record.steps = fields::readRecords<Step>(json, "steps");
  record.startedAt = fields::readDate(json, "startedAt");
  record.finishedAt = fields::readOptionalDate(json, "finishedAt");
  return record;
}

}  // namespace vorna::contracts
