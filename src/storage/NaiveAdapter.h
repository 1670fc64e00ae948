#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "storage/FileSystem.h"
#include "storage/PageStorageAdapter.h"
#include "storage/RecoveryStore.h"

namespace vorna::storage {

// The plain baseline: compare first, then write a temporary file beside the
// page and rename it over the page. It retains nothing, so the previous version
// is gone, and a change landing between its check and its rename is silently
// replaced. The page gets a new inode with mode 0644 (less the umask), and with
// no expected version a missing page is created. The host saves through
// SafeAdapter; this one is what that adapter is measured against.
//
// Outcomes: saved (displaced and pending none); staleFingerprintPrecheck when
// the page is not the expected version or cannot be read (observed and
// onDiskNow both the page's fingerprint, or both none; nothing retained);
// error with the write's or rename's error text.
class NaiveAdapter final : public PageStorageAdapter {
 public:
  // The temporary file is the page's path with this appended.
  static constexpr std::string_view kTemporarySuffix = ".qx-tmp";

  // `recoveryStore` must outlive the adapter; it is never written to.
  explicit NaiveAdapter(RecoveryStore& recoveryStore, FileSystem& fs = FileSystem::real());

  const std::string& name() const override { return name_; }
  RecoveryStore& recoveryStore() const override { return store_; }
  SaveOutcome save(const std::string& pagePath, const contracts::Bytes& newBytes,
                   const std::optional<Fingerprint>& expectedFingerprint) override;

 private:
  const std::string name_ = "naive";
  RecoveryStore& store_;
  FileSystem& fs_;
  std::mutex writeLock_;
};

}  // namespace vorna::storage
