#include "bridge/LoadCheckpointIndex.h"

#include <sys/stat.h>

#include <exception>

#include "storage/RecoveryEntry.h"
#include "storage/RecoveryKind.h"

namespace vorna::bridge {

LoadCheckpointIndex::LoadCheckpointIndex(storage::RecoveryStore& store, BridgeLogSink log)
    : store_(store), logSink_(std::move(log)) {}

std::string LoadCheckpointIndex::keyOf(std::string_view pagePath, std::string_view fingerprint) {
  // A NUL cannot occur in a path, so no page path and fingerprint pair can
  // spell the key of another.
  std::string key(pagePath);
  key += '\0';
  key += fingerprint;
  return key;
}

bool LoadCheckpointIndex::fileExists(const std::string& path) const {
  struct stat info {};
  return store_.fileSystem().stat(path, &info) == 0;
}

void LoadCheckpointIndex::checkpoint(const std::string& pagePath, std::string_view bytes,
                                     const std::string& fingerprint) {
  {
    std::lock_guard guard(lock_);
    seedIfNeeded();
    auto known = payloadByKey_.find(keyOf(pagePath, fingerprint));
    if (known != payloadByKey_.end() && fileExists(known->second)) {
      return;
    }
  }
  // Written outside the lock, so loads of other pages do not wait for the
  // flushes. Two loads of one version at once may both keep a copy; the index
  // names one and retention treats the other as an older version.
  try {
    storage::RecoveryEntry entry =
        store_.retain(bytes, storage::RecoveryKind::displacedExpected, pagePath);
    std::lock_guard guard(lock_);
    noteLocked(entry.pagePath, fingerprint, entry.payloadPath);
  } catch (const std::exception& error) {
    log("load checkpoint not retained for " + pagePath + ": " + error.what());
  }
}

std::optional<std::string> LoadCheckpointIndex::payloadURL(const std::string& pagePath,
                                                           const std::string& fingerprint) {
  std::unique_lock guard(lock_);
  seedArrived_.wait(guard, [this] { return !seedExpected_; });
  seedIfNeeded();
  auto known = payloadByKey_.find(keyOf(pagePath, fingerprint));
  if (known == payloadByKey_.end()) {
    return std::nullopt;
  }
  if (!fileExists(known->second)) {
    payloadByKey_.erase(known);
    return std::nullopt;
  }
  return known->second;
}

void LoadCheckpointIndex::expectSeed() {
  std::lock_guard guard(lock_);
  seedExpected_ = !seeded_;
}

void LoadCheckpointIndex::seed(const std::vector<storage::RecoveryEntry>& entries) {
  {
    std::lock_guard guard(lock_);
    if (!seeded_) {
      seeded_ = true;
      for (const storage::RecoveryEntry& entry : entries) {
        if (entry.fingerprint) {
          noteLocked(entry.pagePath, entry.fingerprint->hex, entry.payloadPath);
        }
      }
    }
    seedExpected_ = false;
  }
  seedArrived_.notify_all();
}

void LoadCheckpointIndex::seedIfNeeded() {
  if (seeded_ || seedExpected_) {
    return;
  }
  seeded_ = true;
  try {
    for (const storage::RecoveryEntry& entry : store_.entries()) {
      if (entry.fingerprint) {
        noteLocked(entry.pagePath, entry.fingerprint->hex, entry.payloadPath);
      }
    }
  } catch (const std::exception&) {
    // An unreadable store leaves the index to what later calls record; lookups
    // of older versions then find nothing, which callers already handle.
    payloadByKey_.clear();
  }
}

void LoadCheckpointIndex::noteLocked(const std::string& pagePath, const std::string& fingerprint,
                                     const std::string& payloadPath) {
  std::string& recorded = payloadByKey_[keyOf(pagePath, fingerprint)];
  if (!recorded.empty() && fileExists(recorded)) {
    return;
  }
  recorded = payloadPath;
}

void LoadCheckpointIndex::log(std::string_view message) const {
  logSink_(bridgeLogLine(message));
}

}  // namespace vorna::bridge
