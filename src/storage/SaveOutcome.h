#pragma once

#include <variant>

#include "storage/ConflictInfo.h"
#include "storage/SaveFailure.h"
#include "storage/SavedInfo.h"

namespace vorna::storage {

// What one save did on disk: exactly one of saved, conflict or error.
class SaveOutcome {
 public:
  static SaveOutcome saved(SavedInfo info) { return SaveOutcome(std::move(info)); }
  static SaveOutcome conflict(ConflictInfo info) { return SaveOutcome(std::move(info)); }
  static SaveOutcome error(SaveFailure failure) { return SaveOutcome(std::move(failure)); }

  bool isSaved() const { return std::holds_alternative<SavedInfo>(value_); }
  bool isConflict() const { return std::holds_alternative<ConflictInfo>(value_); }
  bool isError() const { return std::holds_alternative<SaveFailure>(value_); }

  // Each accessor requires its case; asking for another throws std::bad_variant_access.
  const SavedInfo& savedInfo() const { return std::get<SavedInfo>(value_); }
  const ConflictInfo& conflictInfo() const { return std::get<ConflictInfo>(value_); }
  const SaveFailure& failure() const { return std::get<SaveFailure>(value_); }

  bool operator==(const SaveOutcome&) const = default;

 private:
  template <typename Case>
  explicit SaveOutcome(Case value) : value_(std::move(value)) {}

  std::variant<SavedInfo, ConflictInfo, SaveFailure> value_;
};

}  // namespace vorna::storage
