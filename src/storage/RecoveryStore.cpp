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

void createFolders(const std::string& path, FileSystem& fs) {
  struct stat st {};
  if (fs.stat(path, &st) == 0) {
    if (!S_ISDIR(st.st_mode)) {
      throw FileOpError::syscall("mkdir", EEXIST, path);
    }
    return;
  }
  std::string parent = parentFolder(path);
  if (parent != path && parent != ".") {
    createFolders(parent, fs);
  }
  // Retained copies are the user's private work; nobody else needs to list them.
  if (fs.mkdir(path, 0700) != 0) {
    int code = errno;
    // Another process may have created it in the meantime; only a folder will do.
    if (code != EEXIST || fs.stat(path, &st) != 0 || !S_ISDIR(st.st_mode)) {
      throw FileOpError::syscall("mkdir", code, path);
    }
  }
}

void requireUtf8(const std::string& path) {
  if (!isValidUtf8(path)) {
    throw std::invalid_argument("cannot record a path that is not valid UTF-8: " + path);
  }
}

}  // namespace

RecoveryStore::RecoveryStore(std::string directory, FileSystem& fs)
    : directory_(std::move(directory)), fs_(fs) {
  createFolders(directory_, fs_);
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

RecoveryEntry RecoveryStore::record(std::string id, RecoveryKind kind, const std::string& pagePath,
                                    std::optional<Fingerprint> fingerprint, int64_t byteCount,
                                    bool stabilized, bool movedByCopy) {
  std::string payload = payloadPathFor(id);
  RecoveryEntry entry{
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
  writeSidecar(entry);
  return entry;
}

RecoveryEntry RecoveryStore::retain(std::string_view bytes, RecoveryKind kind,
                                    const std::string& pagePath) {
  std::string id = drawId(kind, pagePath);
  std::string payload = payloadPathFor(id);
  struct stat st {};
  if (fs_.lstat(payload, &st) == 0) {
    throw FileOpError::wouldOverwrite(payload);
  }
  writeDurably(bytes, payload, /*exclusive=*/true, 0600, fs_);
  makeReadOnly(payload, fs_);
  return record(std::move(id), kind, pagePath, Fingerprint::ofBytes(bytes),
                static_cast<int64_t>(bytes.size()), /*stabilized=*/true, /*movedByCopy=*/false);
}

RecoveryEntry RecoveryStore::adopt(const std::string& filePath, RecoveryKind kind,
                                   const std::string& pagePath,
                                   std::optional<Fingerprint> fingerprint, int64_t byteCount,
                                   bool stabilized) {
  std::string id = drawId(kind, pagePath);
  std::string payload = payloadPathFor(id);
  bool movedByCopy = moveFilePreservingInode(filePath, payload, fs_);
  makeReadOnly(payload, fs_);
  return record(std::move(id), kind, pagePath, std::move(fingerprint), byteCount, stabilized,
                movedByCopy);
}

void RecoveryStore::writeSidecar(const RecoveryEntry& entry) {
  // Exclusive: an existing sidecar is never replaced.
  writeDurably(contracts::writeJson(entry.toJson()), sidecarPathFor(entry.id),
               /*exclusive=*/true, 0600, fs_);
  fsyncDirectory(directory_, fs_);
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
