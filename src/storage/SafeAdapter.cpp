#include "storage/SafeAdapter.h"

#include <sys/stat.h>

#include <exception>
#include <future>
#include <system_error>

#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"
#include "storage/RandomUuid.h"
#include "storage/Utf8.h"

namespace vorna::storage {
namespace {

using contracts::Bytes;

// Below this size hashing costs less than starting a thread.
constexpr size_t kHashOnThreadFrom = 128 * 1024;

// The fingerprint of the new bytes. It is first needed after the exchange, so a
// large page is hashed on another thread while its staged copy is written and
// flushed. Hashing touches no disk, so the order of disk effects is unchanged.
class NewBytesFingerprint {
 public:
  NewBytesFingerprint(const Bytes& bytes, bool overlap) {
    if (overlap && bytes.size() >= kHashOnThreadFrom) {
      try {
        pending_ = std::async(std::launch::async, [&bytes] { return Fingerprint::ofBytes(bytes); });
        return;
      } catch (const std::system_error&) {
        // No thread to be had: hash here instead.
      }
    }
    value_ = Fingerprint::ofBytes(bytes);
  }

  const Fingerprint& get() {
    if (!value_) {
      value_ = pending_.get();
    }
    return *value_;
  }

 private:
  std::future<Fingerprint> pending_;  // its destructor waits, also when a step throws
  std::optional<Fingerprint> value_;
};

std::vector<RecoveryEntry> retainedList(RecoveryEntry moved,
                                        const std::optional<RecoveryEntry>& pending) {
  std::vector<RecoveryEntry> retained{std::move(moved)};
  if (pending) {
    retained.push_back(*pending);
  }
  return retained;
}

}  // namespace

SafeAdapter::SafeAdapter(RecoveryStore& recoveryStore, uint64_t settleInterval, int settleAttempts,
                         bool retainPendingBytes, bool restoreExternalVersion, FileSystem& fs)
    : store_(recoveryStore),
      fs_(fs),
      settleInterval_(settleInterval),
      settleAttempts_(settleAttempts),
      retainPendingBytes_(retainPendingBytes),
      restoreExternalVersion_(restoreExternalVersion),
      changes_(fs) {}

std::string SafeAdapter::swapFileName(std::string_view pageName, std::string_view uuid) {
  std::string_view namePart = pageName;
  if (namePart.size() > kSwapNameBytes) {
    namePart = namePart.substr(0, kSwapNameBytes);
    if (!isValidUtf8(namePart)) {
      namePart = "page";
    }
  }
  std::string name(kSwapPrefix);
  name += uuid;
  name += '-';
  name += namePart;
  return name;
}

SaveOutcome SafeAdapter::save(const std::string& pagePath, const Bytes& newBytes,
                              const std::optional<Fingerprint>& expectedFingerprint) {
  PathLocks::Hold hold = pageLocks_.acquire(pagePath);
  try {
    return performSave(pagePath, newBytes, expectedFingerprint);
  } catch (const std::exception& error) {
    // FileOpError's what() is its description, the text the editor shows.
    return SaveOutcome::error(SaveFailure::underlying(error.what()));
  }
}

StabilizedFingerprint SafeAdapter::settle(const std::string& swapPath, const Settings& settings) {
  return stabilizedFingerprint(swapPath, settings.settleInterval, settings.settleAttempts, fs_);
}

std::optional<Fingerprint> SafeAdapter::readBack(const std::string& pagePath) {
  try {
    return fingerprintFile(pagePath, fs_).fingerprint;
  } catch (const FileOpError&) {
    return std::nullopt;
  }
}

SaveOutcome SafeAdapter::performSave(const std::string& pagePath, const Bytes& newBytes,
                                     const std::optional<Fingerprint>& expectedFingerprint) {
  const Settings settings{settleInterval_, settleAttempts_, retainPendingBytes_,
                          restoreExternalVersion_, overlapIndependentWork_};
  const std::string folder = parentFolder(pagePath);

  struct stat st {};
  if (fs_.stat(pagePath, &st) != 0 || S_ISDIR(st.st_mode)) {
    return SaveOutcome::error(SaveFailure::pageMissing(pagePath));
  }
  // A pipe, device or socket is never exchanged: its reader or writer would
  // be handed a page, and settling its displaced side could wait for ever.
  if (!S_ISREG(st.st_mode)) {
    return SaveOutcome::error(
        SaveFailure::underlying(FileOpError::notAFile(pagePath).description()));
  }
  // Every save ends by retaining a version of this page; one the store could
  // not describe is refused before the page is touched.
  store_.requireRecordable(pagePath);
  NewBytesFingerprint newFingerprint(newBytes, settings.overlapIndependentWork);

  std::optional<RecoveryEntry> pending;
  if (settings.retainPendingBytes) {
    pending = store_.retain(newBytes, RecoveryKind::pendingEditorBytes, pagePath);
  }

  // Staged in the page's own folder, so that it is on the page's file system
  // and can be exchanged with it. Its bytes are flushed before the exchange can
  // reach the disk; no folder is flushed until the displaced version lands in
  // the store, whose flush carries every change made here before it (one
  // folder's changes reach the disk in order, a rename as a whole).
  const std::string swapPath =
      joinPath(folder, swapFileName(lastComponent(pagePath), randomUuid()));
  changes_.stage(swapPath, newBytes, 0644);
  // The page takes the staged inode, and with it the staged permission bits.
  copyPermissions(pagePath, swapPath, fs_);
  try {
    changes_.exchange(swapPath, pagePath);
  } catch (const FileOpError&) {
    // The page is untouched and the staged file holds only the editor's bytes,
    // which the editor still has.
    fs_.unlink(swapPath);
    throw;
  }
  // From here the page holds the new bytes and the swap file the displaced
  // version; nothing below removes either. Until the store takes the swap file,
  // a power cut leaves the folder as it was before, or holding both versions.
  const StabilizedFingerprint displaced = settle(swapPath, settings);

  // An unreadable displaced version is never taken for the expected one.
  const bool isExpected = !expectedFingerprint ||
                          (displaced.fingerprint && *displaced.fingerprint == *expectedFingerprint);

  if (isExpected) {
    // A large page is read back while the displaced version goes into the
    // store, whose flushes wait on the disk. The read changes nothing on disk,
    // and it still follows the exchange and the settling; a rival's write
    // during the retention is seen by it or not, as one just after would be.
    std::future<std::optional<Fingerprint>> readingBack;
    if (settings.overlapIndependentWork && newBytes.size() >= kHashOnThreadFrom) {
      try {
        readingBack =
            std::async(std::launch::async, [this, &pagePath] { return readBack(pagePath); });
      } catch (const std::system_error&) {
        // No thread to be had: read back after the retention instead.
      }
    }
    RecoveryEntry entry =
        store_.adopt(swapPath, RecoveryKind::displacedExpected, pagePath, displaced.fingerprint,
                     displaced.byteCount, displaced.stabilized);
    std::optional<Fingerprint> now = readingBack.valid() ? readingBack.get() : readBack(pagePath);
    const Fingerprint& written = newFingerprint.get();
    if (now && *now == written) {
      return SaveOutcome::saved(SavedInfo{written, std::move(entry), std::move(pending)});
    }
    return SaveOutcome::conflict(ConflictInfo{ConflictKind::overwrittenAfterWrite, now, now,
                                              retainedList(std::move(entry), pending)});
  }

  if (!settings.restoreExternalVersion) {
    RecoveryEntry entry =
        store_.adopt(swapPath, RecoveryKind::displacedExternal, pagePath, displaced.fingerprint,
                     displaced.byteCount, displaced.stabilized);
    return SaveOutcome::conflict(ConflictInfo{ConflictKind::externalVersion, displaced.fingerprint,
                                              readBack(pagePath),
                                              retainedList(std::move(entry), pending)});
  }

  // The foreign version goes back. On failure the swap file keeps it, and is
  // left for the sweep rather than removed.
  changes_.exchange(swapPath, pagePath);
  const StabilizedFingerprint withdrawn = settle(swapPath, settings);
  // Anything but the editor's bytes means the page changed yet again between
  // the two exchanges: a third version, kept as a foreign one.
  const RecoveryKind kind = withdrawn.fingerprint && *withdrawn.fingerprint == newFingerprint.get()
                                ? RecoveryKind::editorBytesWithdrawn
                                : RecoveryKind::displacedExternal;
  RecoveryEntry entry = store_.adopt(swapPath, kind, pagePath, withdrawn.fingerprint,
                                     withdrawn.byteCount, withdrawn.stabilized);
  return SaveOutcome::conflict(ConflictInfo{ConflictKind::externalVersion, displaced.fingerprint,
                                            readBack(pagePath),
                                            retainedList(std::move(entry), pending)});
}

}  // namespace vorna::storage
