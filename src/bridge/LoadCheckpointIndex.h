#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bridge/BridgeLog.h"
#include "storage/RecoveryStore.h"

namespace vorna::bridge {

// Where the bytes of a given version of a page are kept: every page version the
// bridge hands out or writes has a copy in the recovery store, found again by
// page path and fingerprint, so that a conflict can offer the version the
// editor started from as its base.
//
// Nothing is persisted by the index: on first use it indexes the store's
// existing entries (of every kind), and from then on it only grows, except that
// a lookup forgets a payload file that has disappeared (pruned by retention).
// When one version is recorded twice, the oldest copy that still exists wins.
//
// Thread safety: `lock()` guards the whole index and is held by each public
// operation while it looks at the index, never while it writes a copy to the
// store; seedIfNeeded and noteLocked expect the caller to hold it, so that
// a caller can register a payload it put in the store itself in one step.
class LoadCheckpointIndex {
 public:
  // `store` must outlive the index.
  explicit LoadCheckpointIndex(storage::RecoveryStore& store,
                               BridgeLogSink log = writeBridgeLogToStandardError);
  LoadCheckpointIndex(const LoadCheckpointIndex&) = delete;
  LoadCheckpointIndex& operator=(const LoadCheckpointIndex&) = delete;

  // Makes sure the version `fingerprint` (hex, supplied by the caller, not
  // checked against the bytes) of the page has a copy in the store, retaining
  // `bytes` as a displacedExpected entry unless a copy is already known. A
  // failure to retain is logged as "load checkpoint not retained for {path}:
  // {error}" and otherwise ignored; a later call tries again.
  void checkpoint(const std::string& pagePath, std::string_view bytes,
                  const std::string& fingerprint);

  // The path of a kept copy of that version, or nothing. Waits for a seed
  // that is on its way.
  std::optional<std::string> payloadURL(const std::string& pagePath,
                                        const std::string& fingerprint);

  std::mutex& lock() { return lock_; }

  // Says that seed will be called with the store's entries, read elsewhere:
  // until then seedIfNeeded reads nothing, so a checkpoint does not wait for
  // the whole store (it may keep a second copy of a version instead).
  void expectSeed();
  // Indexes `entries`, as read from the store once at opening.
  void seed(const std::vector<storage::RecoveryEntry>& entries);

  // Caller holds lock(). Indexes the store's entries once per object; a store
  // that cannot be listed leaves the index empty, and is not asked again.
  void seedIfNeeded();

  // Caller holds lock(). Records a payload already in the store, unless a copy
  // of that version is recorded and still exists.
  void noteLocked(const std::string& pagePath, const std::string& fingerprint,
                  const std::string& payloadPath);

  // Writes "Vorna bridge: " + message as one line to the log sink.
  void log(std::string_view message) const;

 private:
  static std::string keyOf(std::string_view pagePath, std::string_view fingerprint);
  bool fileExists(const std::string& path) const;

  storage::RecoveryStore& store_;
  BridgeLogSink logSink_;
  std::mutex lock_;
  std::condition_variable seedArrived_;
  bool seeded_ = false;                                        // guarded by lock_
  bool seedExpected_ = false;                                  // guarded by lock_
  std::unordered_map<std::string, std::string> payloadByKey_;  // guarded by lock_
};

}  // namespace vorna::bridge
