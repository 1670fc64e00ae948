#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "contracts/Json.h"
#include "storage/FileSystem.h"

namespace vorna::storage {

// Names one exact version of some bytes: the SHA-256 of the bytes as 64
// lower-case hex digits. Equality is exact string equality.
struct Fingerprint {
  std::string hex;

  // Hashes bytes already in memory; no I/O.
  static Fingerprint ofBytes(std::string_view bytes);
  // Stores `hex` unchanged: no validation, no change of case.
  static Fingerprint fromHex(std::string hex) { return Fingerprint{std::move(hex)}; }

  const std::string& description() const { return hex; }
  contracts::Json toJson() const;  // {"hex": "..."}
  // Nothing unless `json` is an object whose "hex" is a string.
  static std::optional<Fingerprint> fromJson(const contracts::Json& json);

  bool operator==(const Fingerprint&) const = default;
};

struct FileFingerprint {
  Fingerprint fingerprint;
  int64_t byteCount = 0;
};

// Streams a regular file through one reused 1 MiB buffer; memory stays
// bounded for any size. Anything but a regular file is notAFile, and the open
// never waits for a pipe's writer. Throws FileOpError (op "open", "fstat" or
// "read", or notAFile) on failure.
FileFingerprint fingerprintFile(const std::string& path, FileSystem& fs = FileSystem::real());

struct StabilizedFingerprint {
  std::optional<Fingerprint> fingerprint;  // none when the first reading failed
  int64_t byteCount = 0;
  bool stabilized = false;  // two consecutive readings agreed
};

// Fingerprints a file that another program may still be writing: reads it up
// to max(attempts, 1) times, sleeping `intervalNanos` between readings, and
// stops as soon as two consecutive readings agree. Never throws.
StabilizedFingerprint stabilizedFingerprint(const std::string& path, uint64_t intervalNanos,
                                            int attempts, FileSystem& fs = FileSystem::real());

}  // namespace vorna::storage
