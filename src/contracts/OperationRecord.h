#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contracts/IsoDate.h"
#include "contracts/Json.h"

namespace vorna::contracts {

// A journal entry for a multi-file operation, kept so that an interrupted
// operation can be seen after a restart.
struct OperationRecord {
  // Progress of one step; written as its raw name.
  enum class StepState { pending, landed, failed };

  // One file of an operation.
  struct Step {
    std::string path;  // as the caller gave it
    std::optional<std::string> beforeFingerprint;
    std::optional<std::string> afterFingerprint;  // expected after the step
    StepState state = StepState::pending;

    // Keys equal the field names; the fingerprints only when present.
    Json toJson() const;
    // Throws DecodeError when `json` does not have that shape.
    static Step fromJson(const Json& json);

    bool operator==(const Step&) const = default;
  };

  std::string id;  // a random UUID, upper case
  std::string label;
  std::vector<Step> steps;  // in the caller's order
  Timestamp startedAt;
  std::optional<Timestamp> finishedAt;  // absent while unfinished

  static std::string_view stepStateName(StepState state);
  // Only the exact raw strings "pending", "landed", "failed".
  static std::optional<StepState> stepStateFromName(std::string_view name);

  // Keys equal the field names; finishedAt only when present.
  Json toJson() const;
  // Throws DecodeError when `json` or any step in it does not have that shape.
  static OperationRecord fromJson(const Json& json);

  bool operator==(const OperationRecord&) const = default;
};

}  // namespace vorna::contracts
