#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "storage/DurableChanges.h"
#include "storage/FileSystem.h"
#include "storage/PageStorageAdapter.h"
#include "storage/PathLocks.h"
#include "storage/RecoveryStore.h"

namespace vorna::storage {

// Saves a page as a compare-and-swap on its content: the new bytes are staged
// and flushed beside the page, exchanged with it in one atomic step, and only
// then is the displaced version examined. Every version that leaves the page's
// path goes into the recovery store; no version is ever deleted. The save does
// not flush the page's folder after an exchange: moving the displaced file into
// the store, flushed there, carries the staging and the exchanges with it (a
// copy into a store on another file system flushes the page's folder itself).
//
// - The displaced version is the expected one: the save stands, the old version
//   is retained (displacedExpected) and the page is read back -> saved, or
//   overwrittenAfterWrite when the page no longer holds the new bytes.
// - It is not, and restoreExternalVersion: the foreign version is exchanged back
//   into the page and the editor's bytes are retained (editorBytesWithdrawn, or
//   displacedExternal when yet another version came in) -> externalVersion.
// - It is not, and not restoreExternalVersion: the new bytes stay, the foreign
//   version is retained (displacedExternal) -> externalVersion.
//
// A missing page or a folder is SaveOutcome::error(pageMissing); anything else
// that is not a regular file (a pipe, a device, a socket: "not a regular file:
// {path}") and a page path that is not valid UTF-8 (which no sidecar could
// record) are errors as well; all before anything is written. A later step
// that fails yields SaveOutcome::error with that step's error text. What it
// leaves: a displaced or withdrawn version in a ".vn-swap-" file beside the
// page, for the next sweep, or nothing; with retainPendingBytes, a payload of
// the editor's bytes without its sidecar. The page always holds one whole
// version, and so does every state a power cut may leave.
//
// The page path must be canonical: its last component must not be a symbolic
// link, since an exchange moves the link itself, not the file it names. The
// workspace boundary resolves links before a path reaches here.
//
// Any thread may call save; saves of one page through one object run strictly
// one after another (pageLocks), saves of different pages side by side. Other
// programs are not locked out; the design copes with them by exchanging first
// and checking afterwards.
class SafeAdapter final : public PageStorageAdapter {
 public:
  // The prefix of every staged file; the recovery sweep looks for it.
  static constexpr std::string_view kSwapPrefix = ".vn-swap-";
  // How much of the page's name a staged file's name keeps.
  static constexpr size_t kSwapNameBytes = 180;

  // `recoveryStore` must outlive the adapter. `settleInterval` is in
  // nanoseconds; see the setters for each setting.
  SafeAdapter(RecoveryStore& recoveryStore, uint64_t settleInterval, int settleAttempts,
              bool retainPendingBytes, bool restoreExternalVersion,
              FileSystem& fs = FileSystem::real());

  const std::string& name() const override { return name_; }
  RecoveryStore& recoveryStore() const override { return store_; }
  SaveOutcome save(const std::string& pagePath, const contracts::Bytes& newBytes,
                   const std::optional<Fingerprint>& expectedFingerprint) override;

  // Settings take effect from the next save; a running save keeps the values it
  // started with.
  //
  // Pause between two readings of a displaced file that may still be written.
  uint64_t settleInterval() const { return settleInterval_; }
  void setSettleInterval(uint64_t nanos) { settleInterval_ = nanos; }
  // Most readings of a displaced file before its last reading is taken as is.
  int settleAttempts() const { return settleAttempts_; }
  void setSettleAttempts(int attempts) { settleAttempts_ = attempts; }
  // Copy the editor's bytes into the store before the page is touched.
  bool retainPendingBytes() const { return retainPendingBytes_; }
  void setRetainPendingBytes(bool retain) { retainPendingBytes_ = retain; }
  // On a foreign displaced version, put it back and withdraw the editor's bytes.
  bool restoreExternalVersion() const { return restoreExternalVersion_; }
  void setRestoreExternalVersion(bool restore) { restoreExternalVersion_ = restore; }
  // Hash a large page's new bytes on another thread while its staged copy is
  // written, and read it back while its displaced version is retained. Neither
  // changes the disk, so the disk effects and their order are the same either
  // way; on by default, off only to measure what it gains.
  bool overlapIndependentWork() const { return overlapIndependentWork_; }
  void setOverlapIndependentWork(bool overlap) { overlapIndependentWork_ = overlap; }

  // ".vn-swap-{uuid}-{name}" where {name} is `pageName` cut to its first 180
  // bytes, or "page" when that cut leaves no valid UTF-8 (it split a character).
  static std::string swapFileName(std::string_view pageName, std::string_view uuid);

 private:
  struct Settings {
    uint64_t settleInterval;
    int settleAttempts;
    bool retainPendingBytes;
    bool restoreExternalVersion;
    bool overlapIndependentWork;
  };

  SaveOutcome performSave(const std::string& pagePath, const contracts::Bytes& newBytes,
                          const std::optional<Fingerprint>& expectedFingerprint);
  // The settled fingerprint of the file an exchange put at `swapPath`.
  StabilizedFingerprint settle(const std::string& swapPath, const Settings& settings);
  // The page's fingerprint as the adapter leaves it; none when unreadable.
  std::optional<Fingerprint> readBack(const std::string& pagePath);

  const std::string name_ = "safe";
  RecoveryStore& store_;
  FileSystem& fs_;
  std::atomic<uint64_t> settleInterval_;
  std::atomic<int> settleAttempts_;
  std::atomic<bool> retainPendingBytes_;
  std::atomic<bool> restoreExternalVersion_;
  std::atomic<bool> overlapIndependentWork_{true};
  DurableChanges changes_;
  PathLocks pageLocks_;  // a page's, held for the whole of one save of it
};

}  // namespace vorna::storage
