#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "contracts/IsoDate.h"
#include "recovery/DraftEntry.h"
#include "recovery/RetentionStoreIndex.h"

namespace vorna::recovery {

// What one retention pass keeps and deletes. Pure: the service gathers the
// drafts, the pinned payloads and the store index, and carries the plan out.
// The empty plan keeps everything.
struct RetentionPlan {
  std::vector<size_t> droppedDrafts;   // indices into the drafts planned for, ascending
  std::vector<std::string> deletions;  // payload paths, in the order found

  // `drafts` without the dropped ones: the list for drafts.json.
  std::vector<DraftEntry> keptDrafts(const std::vector<DraftEntry>& drafts) const;

  // The budget of each page in `pages`. Discarded drafts and retained versions
  // of kind displacedExpected are two separate groups: in each, newest first
  // (capture time, then the greater id), the first `retainedPerPage` are kept
  // whatever their age; of the rest, those captured strictly before
  // now - `retentionGrace` seconds are deleted unless `pinned` holds for their
  // payload path (live drafts and every conflict's candidates) or the payload
  // lies outside `storeDirectory` (then it is no retained copy of ours).
  // `pinned` is asked only about such old versions, so a caller may gather the
  // pins on the first question. A negative budget deletes nothing. Other kinds
  // of entries are never deleted here: the editor's bytes and foreign versions
  // go only with their draft. Beyond one scan of `drafts`, the cost follows the
  // drafts and versions of `pages` alone.
  static RetentionPlan make(const std::set<std::string>& pages,
                            const std::vector<DraftEntry>& drafts,
                            const std::function<bool(const std::string&)>& pinned,
                            const RetentionStoreIndex::EntriesByPage& storeEntries,
                            const std::string& storeDirectory, std::int64_t retainedPerPage,
                            double retentionGrace, contracts::Timestamp now);
};

}  // namespace vorna::recovery
