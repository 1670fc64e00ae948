#pragma once

#include <string>

namespace vorna::storage {

// Why a save could not be carried out. A value, returned inside a SaveOutcome:
// saves never throw.
class SaveFailure {
 public:
  enum class Kind {
    pageMissing,  // the page does not exist or is a folder; nothing was written
    underlying,   // a step failed; the message is that step's error text
  };

  static SaveFailure pageMissing(std::string pagePath) {
    return SaveFailure(Kind::pageMissing, std::move(pagePath));
  }
  static SaveFailure underlying(std::string message) {
    return SaveFailure(Kind::underlying, std::move(message));
  }

  Kind kind() const { return kind_; }
  // "page missing: {path}" for pageMissing, the message itself for underlying.
  std::string description() const {
    return kind_ == Kind::pageMissing ? "page missing: " + detail_ : detail_;
  }

  bool operator==(const SaveFailure&) const = default;

 private:
  SaveFailure(Kind kind, std::string detail) : kind_(kind), detail_(std::move(detail)) {}

  Kind kind_;
  std::string detail_;  // the page path or the message
};

}  // namespace vorna::storage
