#pragma once

#include <optional>
#include <string>

#include "contracts/Bytes.h"
#include "storage/Fingerprint.h"
#include "storage/SaveOutcome.h"

namespace vorna::storage {

class RecoveryStore;

// Writes a page on behalf of the editor. Implementations may be called from any
// thread; saves through one object run strictly one after another.
class PageStorageAdapter {
 public:
  virtual ~PageStorageAdapter() = default;

  // A short identifier: "safe" or "naive".
  virtual const std::string& name() const = 0;
  // Where this adapter retains copies.
  virtual RecoveryStore& recoveryStore() const = 0;

  // Replaces the page at `pagePath` (absolute, already confined to the
  // workspace) with `newBytes`, provided it still holds the version
  // `expectedFingerprint` names; none means "whatever is there". Never throws:
  // every failure is SaveOutcome::error. Returns when all its disk work is done.
  virtual SaveOutcome save(const std::string& pagePath, const contracts::Bytes& newBytes,
                           const std::optional<Fingerprint>& expectedFingerprint) = 0;
};

}  // namespace vorna::storage
