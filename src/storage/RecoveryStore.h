#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/DurableChanges.h"
#include "storage/FileSystem.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryEntry.h"
#include "storage/RecoveryKind.h"

namespace vorna::storage {

// A flat folder of retained page versions: each payload "{id}.bin" (read-only)
// beside its sidecar "{id}.json" (the RecoveryEntry, compact JSON with sorted
// keys). Ids begin with the time in milliseconds, so names sort by time.
//
// The store only ever adds files; it never changes or removes one. Every call
// may come from any thread: only drawing an id is locked, and ids are unique
// across threads (a sequence under the lock) and processes (a random UUID), so
// concurrent writers never contend for a name.
//
// Errors: FileOpError from the durable primitives; contracts::DecodeError for a
// sidecar that cannot be read back as an entry; std::invalid_argument for a
// path that a sidecar cannot hold (not valid UTF-8).
class RecoveryStore {
 public:
  // Creates `directory` (absolute) with any missing parents, each durable in
  // its parent (DurableChanges::makeFolder); an existing folder is kept.
  // Throws FileOpError with op "mkdir" naming the folder that could not be
  // created (also when something that is not a folder is in the way).
  explicit RecoveryStore(std::string directory, FileSystem& fs = FileSystem::real());
  RecoveryStore(const RecoveryStore&) = delete;
  RecoveryStore& operator=(const RecoveryStore&) = delete;

  const std::string& directory() const { return directory_; }
  FileSystem& fileSystem() const { return fs_; }

  // Copies bytes in memory into a new payload (exclusive, 0600, then 0444) and
  // writes its sidecar; both are durable when this returns. The entry's
  // fingerprint is of `bytes` and counts as stabilized. A failure after the
  // payload is written leaves it without a sidecar. Errors: wouldOverwrite,
  // and DurableChanges' errors.
  RecoveryEntry retain(std::string_view bytes, RecoveryKind kind, const std::string& pagePath);

  // Moves the file at `filePath` into the store as a new payload, keeping its
  // inode where the file systems allow (movedByCopy otherwise), with a sidecar
  // holding the given facts about its bytes, and makes it read-only; both are
  // durable when this returns. The sidecar is written first: when it or the
  // move fails, the file stays where it was and nothing is recorded.
  RecoveryEntry adopt(const std::string& filePath, RecoveryKind kind, const std::string& pagePath,
                      std::optional<Fingerprint> fingerprint, int64_t byteCount, bool stabilized);

  // Every entry that has a sidecar, ordered by id. Any unreadable or malformed
  // sidecar fails the whole listing. Payloads without a sidecar are not listed.
  std::vector<RecoveryEntry> entries() const;
  // The ids that have a sidecar, ascending; with readEntry, lets an index over
  // the store read only the sidecars it has not seen.
  std::vector<std::string> entryIds() const;
  // Reads the sidecar of `id`. Errors: "open"/"read" FileOpError, DecodeError
  // whose text names the sidecar's path.
  RecoveryEntry readEntry(std::string_view id) const;
  // Reads one sidecar by path; errors as readEntry.
  RecoveryEntry readSidecar(const std::string& sidecarPath) const;

  // Paths of every "*.bin" file, with or without a sidecar, ordered by name.
  std::vector<std::string> payloadPaths() const;
  // The fingerprint of each payload, in payloadPaths() order; the first file
  // that cannot be read fails the whole call.
  std::vector<Fingerprint> payloadFingerprints() const;
  // The entries whose payload no longer matches: no recorded fingerprint, a
  // payload that is missing or unreadable, or one whose bytes changed.
  std::vector<RecoveryEntry> staleFingerprints() const;

  // Throws std::invalid_argument naming the path when a sidecar cannot hold
  // `pagePath` or this store's folder (JSON holds only UTF-8). retain and adopt
  // check this before writing anything; a caller about to do work that ends in
  // one of them can check first.
  void requireRecordable(const std::string& pagePath) const;

  std::string payloadPathFor(std::string_view id) const;
  std::string sidecarPathFor(std::string_view id) const;

 private:
  std::string nextId(RecoveryKind kind);
  // Checks requireRecordable, then draws an id.
  std::string drawId(RecoveryKind kind, const std::string& pagePath);
  // The entry for a payload under `id`, captured now.
  RecoveryEntry describe(std::string id, RecoveryKind kind, const std::string& pagePath,
                         std::optional<Fingerprint> fingerprint, int64_t byteCount, bool stabilized,
                         bool movedByCopy) const;
  static std::string sidecarText(const RecoveryEntry& entry);
  // Whether a rename can bring `filePath` into this folder (one device); true
  // when either cannot be examined, so that the rename itself decides.
  bool onOneFileSystem(const std::string& filePath) const;
  // Names in the folder ending in `suffix`, ascending.
  std::vector<std::string> namesEndingIn(std::string_view suffix) const;

  const std::string directory_;
  FileSystem& fs_;
  DurableChanges changes_;
  std::mutex lock_;
  uint64_t sequence_ = 0;  // ids issued by this object; the first id carries 1
};

}  // namespace vorna::storage
