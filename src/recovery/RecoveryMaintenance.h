#pragma once

#include <string>
#include <vector>

#include "storage/RecoveryEntry.h"

namespace vorna::recovery {

// The service's housekeeping, kept apart from RecoveryServicing so that the
// bridge's view of the service stays what the editor can ask for. Both
// operations throw contracts::RecoveryError; any thread may call them.
class RecoveryMaintenance {
 public:
  virtual ~RecoveryMaintenance() = default;

  // The path of a draft's payload file, discarded drafts included; whether the
  // file still exists is not checked. notFound "draft {id}" for an unknown id.
  virtual std::string draftPayloadURL(const std::string& id) = 0;
  // Thins out the retained versions and discarded drafts of every page.
  virtual void enforceRetentionBudget() = 0;
  // Reads the retention store's sidecars, the one full read of it at opening,
  // and answers its entries; the retention budget plans from the same read.
  virtual std::vector<storage::RecoveryEntry> loadStoreIndex() = 0;
};

}  // namespace vorna::recovery
