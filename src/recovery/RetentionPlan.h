#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "contracts/IsoDate.h"
#include "recovery/DraftEntry.h"
#include "recovery/RetentionStoreIndex.h"

namespace vorna::recovery {

// What one retention pass keeps and deletes. Pure: the service gathers the
// drafts, the pinned payloads and the store index, and carries the plan out.
struct RetentionPlan {
  std::vector<DraftEntry> keptDrafts;  // the list for drafts.json
  std::vector<std::string> deletions;  // payload paths, in the order found
  bool changed = false;                // keptDrafts differs from the input

  // The budget of each page in `pages`. Discarded drafts and retained versions
  // of kind displacedExpected are two separate groups: in each, newest first
  // (capture time, then the greater id), the first `retainedPerPage` are kept
  // whatever their age; of the rest, those captured strictly before
  // now - `retentionGrace` seconds are deleted unless `pinned` holds their
  // payload path (live drafts and every conflict's candidates) or the payload
  // lies outside `storeDirectory` (then it is no retained copy of ours).
  // A negative budget deletes nothing. Other kinds of entries are never deleted
  // here: the editor's bytes and foreign versions go only with their draft.
  static RetentionPlan make(const std::set<std::string>& pages,
                            const std::vector<DraftEntry>& drafts,
                            const std::unordered_set<std::string>& pinned,
                            const RetentionStoreIndex::EntriesByPage& storeEntries,
                            const std::string& storeDirectory, std::int64_t retainedPerPage,
                            double retentionGrace, contracts::Timestamp now);

  // Keeps everything: for a negative budget or an unreadable conflict index.
  static RetentionPlan keepAll(const std::vector<DraftEntry>& drafts);
};

}  // namespace vorna::recovery
