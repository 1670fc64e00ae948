#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "storage/RecoveryEntry.h"
#include "storage/RecoveryStore.h"

namespace vorna::recovery {

// The retention store's entries grouped by page, kept in memory and brought up
// to date incrementally: a refresh lists the store's folder and reads only the
// sidecars it has not read before, so the cost of a pass after the first grows
// with the listing, not with the number of sidecars.
//
// Not thread-safe: the service uses it only under its own lock.
class RetentionStoreIndex {
 public:
  using EntriesByPage = std::unordered_map<std::string, std::vector<storage::RecoveryEntry>>;

  // Drops the entries whose sidecar in `store` is gone and adds those whose
  // sidecar is new. A folder that cannot be listed counts as empty, so the
  // index empties; a sidecar that cannot be read or decoded, or whose id is not
  // its file name, is skipped and tried again on the next refresh. Never
  // throws. No page maps to an empty list; the order of a page's entries is the
  // order they were added, which means nothing.
  const EntriesByPage& refresh(const storage::RecoveryStore& store);

  const EntriesByPage& entriesByPage() const { return byPage_; }
  size_t size() const { return pageOfId_.size(); }

 private:
  void remove(const std::string& id, const std::string& pagePath);

  EntriesByPage byPage_;
  // The ids in byPage_, each with its page, so that a removal touches one page.
  std::unordered_map<std::string, std::string> pageOfId_;
};

}  // namespace vorna::recovery
