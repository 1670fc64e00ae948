#include "storage/NaiveAdapter.h"

#include "storage/DurableChanges.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"

namespace vorna::storage {

NaiveAdapter::NaiveAdapter(RecoveryStore& recoveryStore, FileSystem& fs)
    : store_(recoveryStore), fs_(fs) {}

SaveOutcome NaiveAdapter::save(const std::string& pagePath, const contracts::Bytes& newBytes,
                               const std::optional<Fingerprint>& expectedFingerprint) {
  std::lock_guard guard(writeLock_);
  if (expectedFingerprint) {
    std::optional<Fingerprint> current;
    try {
      current = fingerprintFile(pagePath, fs_).fingerprint;
    } catch (const FileOpError&) {
      // An unreadable page is a stale base, not an error.
    }
    if (!current || *current != *expectedFingerprint) {
      return SaveOutcome::conflict(
          ConflictInfo{ConflictKind::staleFingerprintPrecheck, current, current, {}});
    }
  }
  const std::string temporary = pagePath + std::string(kTemporarySuffix);
  // A leftover of an earlier failed save must not block this one.
  fs_.unlink(temporary);
  try {
    // Naive on purpose: the page's folder is never flushed after the rename.
    DurableChanges(fs_).stage(temporary, newBytes, 0644);
    if (fs_.rename(temporary, pagePath) != 0) {
      throw FileOpError::fromErrno("rename", temporary);
    }
  } catch (const std::exception& error) {
    return SaveOutcome::error(SaveFailure::underlying(error.what()));
  }
  return SaveOutcome::saved(SavedInfo{Fingerprint::ofBytes(newBytes), std::nullopt, std::nullopt});
}

}  // namespace vorna::storage
