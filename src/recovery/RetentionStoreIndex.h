#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "recovery/FileStamp.h"
#include "storage/RecoveryEntry.h"
#include "storage/RecoveryStore.h"

namespace vorna::recovery {

// The retention store's entries grouped by page, kept in memory and brought up
// to date incrementally: a refresh lists the store's folder and reads only the
// sidecars it has not read before, so the cost of a pass after the first grows
// with the listing, not with the number of sidecars.
//
// A folder whose stamp (FileStamp) is what it was just before the last
// listing, and was settled then, is not listed again, since no name in it can
// have come or gone: with 100,000 entries a listing takes a large part of a
// second, a status a few microseconds.
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
  // The entry with `id` as of the last refresh, or nothing.
  const storage::RecoveryEntry* find(const std::string& id) const;

 private:
  void relist(const storage::RecoveryStore& store);
  // Reads the sidecars of `ids` (ascending) into the index; the ones that
  // cannot be read go to unread_.
  void add(const storage::RecoveryStore& store, const std::vector<std::string>& ids);
  void remove(const std::string& id, const std::string& pagePath);

  EntriesByPage byPage_;
  // The ids in byPage_, each with its page, so that a removal touches one page.
  std::unordered_map<std::string, std::string> pageOfId_;
  // Sidecars present at the last listing that could not be read yet.
  std::unordered_set<std::string> unread_;
  // The folder's stamp taken just before the last listing, when it may stand
  // for that listing.
  std::optional<FileStamp> listed_;
};

}  // namespace vorna::recovery
