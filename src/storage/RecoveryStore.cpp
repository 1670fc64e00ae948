#include "storage/RecoveryStore.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "contracts/DecodeError.h"
#include "contracts/Json.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"
#include "storage/RandomUuid.h"
#include "storage/Utf8.h"

namespace vorna::storage {
namespace {

constexpr std::string_view kPayloadSuffix = ".bin";
constexpr std::string_view kSidecarSuffix = ".json";

void requireUtf8(const std::string& path) {
  if (!isValidUtf8(path)) {
    throw std::invalid_argument("cannot record a path that is not valid UTF-8: " + path);
  }
}

}  // namespace

RecoveryStore::RecoveryStore(std::string directory, FileSystem& fs)
    : directory_(std::move(directory)), fs_(fs), changes_(fs) {
  // Retained copies are the user's private work; nobody else needs to list them.
  changes_.makeFolder(directory_, 0700);
}

std::string RecoveryStore::payloadPathFor(std::string_view id) const {
  return joinPath(directory_, std::string(id) + std::string(kPayloadSuffix));
}

std::string RecoveryStore::sidecarPathFor(std::string_view id) const {
  return joinPath(directory_, std::string(id) + std::string(kSidecarSuffix));
}

std::string RecoveryStore::nextId(RecoveryKind kind) {
  uint64_t sequence;
  int64_t millis;
  {
    std::lock_guard guard(lock_);
    if (sequence_ == std::numeric_limits<uint64_t>::max()) {
      std::abort();  // ids would repeat; unreachable in practice
    }
    sequence = ++sequence_;
    // Read under the lock, so ids of one store sort in the order they were drawn.
    millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                 std::chrono::system_clock::now().time_since_epoch())
                 .count();
  }
  char counter[24];
  std::snprintf(counter, sizeof counter, "%06" PRIu64, sequence);
  std::string id = std::to_string(millis);
  id += '-';
  id += counter;
  id += '-';
  id += recoveryKindName(kind);
  id += '-';
  id += randomUuid();
  return id;
}

void RecoveryStore::requireRecordable(const std::string& pagePath) const {
  requireUtf8(pagePath);
  requireUtf8(directory_);
}

std::string RecoveryStore::drawId(RecoveryKind kind, const std::string& pagePath) {
  // Refusing before anything is written keeps a payload from being stranded
  // without its sidecar.
  requireRecordable(pagePath);
  return nextId(kind);
}

RecoveryEntry RecoveryStore::describe(std::string id, RecoveryKind kind,
                                      const std::string& pagePath,
                                      std::optional<Fingerprint> fingerprint, int64_t byteCount,
                                      bool stabilized, bool movedByCopy) const {
  std::string payload = payloadPathFor(id);
  return RecoveryEntry{
      .id = std::move(id),
      .kind = kind,
      .pagePath = pagePath,
      .payloadPath = std::move(payload),
      .fingerprint = std::move(fingerprint),
      .byteCount = byteCount,
      .fingerprintStabilized = stabilized,
      .movedByCopy = movedByCopy,
      .capturedAt = contracts::wholeSecondsNow(),
  };
}

RecoveryEntry RecoveryStore::retain(std::string_view bytes, RecoveryKind kind,
                                    const std::string& pagePath) {
  RecoveryEntry entry =
      describe(drawId(kind, pagePath), kind, pagePath, Fingerprint::ofBytes(bytes),
               static_cast<int64_t>(bytes.size()), /*stabilized=*/true,
               /*movedByCopy=*/false);
  struct stat st {};
  if (fs_.lstat(entry.payloadPath, &st) == 0) {
    throw FileOpError::wouldOverwrite(entry.payloadPath);
  }
  // The bytes are still held elsewhere (by the editor, or by the page) until
  // this returns, so a power cut before the sidecar leaves at worst a payload
  // that nothing names. The sidecar's folder flush makes the payload's name
  // durable too.
  changes_.stage(entry.payloadPath, bytes, 0600);
  makeReadOnly(entry.payloadPath, fs_);
  changes_.createExclusively(sidecarPathFor(entry.id), sidecarText(entry), 0600);
  return entry;
}

RecoveryEntry RecoveryStore::adopt(const std::string& filePath, RecoveryKind kind,
                                   const std::string& pagePath,
                                   std::optional<Fingerprint> fingerprint, int64_t byteCount,
                                   bool stabilized) {
  RecoveryEntry entry = describe(drawId(kind, pagePath), kind, pagePath, std::move(fingerprint),
                                 byteCount, stabilized, !onOneFileSystem(filePath));
  const std::string sidecar = sidecarPathFor(entry.id);
  // The file may hold the only copy of a version, and once it is a payload no
  // sweep looks for it again; so its sidecar is staged first, and the move's
  // flush of this folder makes both durable, the sidecar no later than the
  // payload. A power cut in between leaves at worst a sidecar whose payload is
  // missing (staleFingerprints lists it) beside the file still in its place.
  for (;;) {
    changes_.stage(sidecar, sidecarText(entry), 0600);
    try {
      changes_.moveIntoFolder(filePath, entry.payloadPath,
                              entry.movedByCopy ? DurableChanges::AcrossFileSystems::copy
                                                : DurableChanges::AcrossFileSystems::refuse);
      break;
    } catch (const FileOpError& error) {
      struct stat st {};
      if (fs_.lstat(entry.payloadPath, &st) == 0) {
        throw;  // the file did arrive: its sidecar stays with it
      }
      fs_.unlink(sidecar);  // it describes nothing
      // Two mounts of one file system refuse a rename between them although
      // they share a device number: the file is copied after all.
      if (entry.movedByCopy || error.op() != "rename" || error.code() != EXDEV) {
        throw;
      }
      entry.movedByCopy = true;
    }
  }
  makeReadOnly(entry.payloadPath, fs_);
  return entry;
}

bool RecoveryStore::onOneFileSystem(const std::string& filePath) const {
  struct stat file {};
  struct stat folder {};
  return fs_.stat(filePath, &file) != 0 || fs_.stat(directory_, &folder) != 0 ||
         file.st_dev == folder.st_dev;
}

std::string RecoveryStore::sidecarText(const RecoveryEntry& entry) {
  return contracts::writeJson(entry.toJson());
}

std::vector<std::string> RecoveryStore::namesEndingIn(std::string_view suffix) const {
  std::vector<std::string> names;
  if (fs_.listDirectory(directory_, names) != 0) {
    throw FileOpError::fromErrno("opendir", directory_);
  }
  std::erase_if(names, [&](const std::string& name) {
    return name.size() <= suffix.size() || !name.ends_with(suffix);
  });
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> RecoveryStore::entryIds() const {
  std::vector<std::string> ids = namesEndingIn(kSidecarSuffix);
  for (std::string& id : ids) {
    id.resize(id.size() - kSidecarSuffix.size());
  }
  return ids;
}

RecoveryEntry RecoveryStore::readEntry(std::string_view id) const {
  return readSidecar(sidecarPathFor(id));
}

RecoveryEntry RecoveryStore::readSidecar(const std::string& sidecarPath) const {
  std::optional<contracts::Json> json = contracts::parseJson(readFileWhole(sidecarPath, fs_));
  if (!json) {
    throw contracts::DecodeError("malformed sidecar " + sidecarPath + ": not JSON");
  }
  try {
    return RecoveryEntry::fromJson(*json);
  } catch (const contracts::DecodeError& error) {
    throw contracts::DecodeError("malformed sidecar " + sidecarPath + ": " + error.what());
  }
}

std::vector<RecoveryEntry> RecoveryStore::entries() const {
  std::vector<RecoveryEntry> result;
  for (const std::string& id : entryIds()) {
    result.push_back(readEntry(id));
  }
  return result;
}

std::vector<std::string> RecoveryStore::payloadPaths() const {
  std::vector<std::string> paths = namesEndingIn(kPayloadSuffix);
  for (std::string& name : paths) {
    name = joinPath(directory_, name);
  }
  return paths;
}

std::vector<Fingerprint> RecoveryStore::payloadFingerprints() const {
  std::vector<Fingerprint> result;
  for (const std::string& path : payloadPaths()) {
    result.push_back(fingerprintFile(path, fs_).fingerprint);
  }
  return result;
}

std::vector<RecoveryEntry> RecoveryStore::staleFingerprints() const {
  std::vector<RecoveryEntry> stale;
  for (RecoveryEntry& entry : entries()) {
    bool matches = false;
    if (entry.fingerprint) {
      try {
        matches = fingerprintFile(entry.payloadPath, fs_).fingerprint == *entry.fingerprint;
      } catch (const FileOpError&) {
        matches = false;
      }
    }
    if (!matches) {
      stale.push_back(std::move(entry));
    }
  }
  return stale;
}

}  // namespace vorna::storage
