#pragma once

#include <exception>
#include <string>

namespace vorna::contracts {

// The error every recovery operation throws. Its description is the message
// that finally reaches the editor.
class RecoveryError : public std::exception {
 public:
  enum class Kind { storeUnavailable, notFound, identityMismatch, stale };

  // "recovery store unavailable: {detail}"
  static RecoveryError storeUnavailable(std::string detail);
  // "not found: {detail}"
  static RecoveryError notFound(std::string detail);
  // "workspace identity mismatch: {detail}"
  static RecoveryError identityMismatch(std::string detail);
  // "stale: {detail}"
  static RecoveryError stale(std::string detail);

  RecoveryError(Kind kind, std::string detail);

  Kind kind() const { return kind_; }
  const std::string& detail() const { return detail_; }
  const std::string& description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

  // Equal when kind and detail are.
  bool operator==(const RecoveryError& other) const {
    return kind_ == other.kind_ && detail_ == other.detail_;
  }

 private:
  Kind kind_;
  std::string detail_;
  std::string description_;
};

}  // namespace vorna::contracts
