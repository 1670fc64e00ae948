#include "contracts/RecoveryError.h"

namespace vorna::contracts {
namespace {

const char* prefixOf(RecoveryError::Kind kind) {
  switch (kind) {
    case RecoveryError::Kind::storeUnavailable:
      return "recovery store unavailable: ";
    case RecoveryError::Kind::notFound:
      return "not found: ";
    case RecoveryError::Kind::identityMismatch:
      return "workspace identity mismatch: ";
    case RecoveryError::Kind::stale:
      return "stale: ";
  }
  return "";
}

}  // namespace

RecoveryError::RecoveryError(Kind kind, std::string detail)
    : kind_(kind), detail_(std::move(detail)), description_(prefixOf(kind) + detail_) {}

RecoveryError RecoveryError::storeUnavailable(std::string detail) {
  return RecoveryError(Kind::storeUnavailable, std::move(detail));
}

RecoveryError RecoveryError::notFound(std::string detail) {
  return RecoveryError(Kind::notFound, std::move(detail));
}

RecoveryError RecoveryError::identityMismatch(std::string detail) {
  return RecoveryError(Kind::identityMismatch, std::move(detail));
}

RecoveryError RecoveryError::stale(std::string detail) {
  return RecoveryError(Kind::stale, std::move(detail));
}

}  // namespace vorna::contracts
