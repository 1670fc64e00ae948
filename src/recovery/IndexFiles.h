#pragma once

#include <functional>
#include <string>

#include "contracts/DecodeError.h"
#include "contracts/Json.h"
#include "storage/FileSystem.h"

// The service's JSON index files: identity.json, and the snapshots of the list
// indexes (IndexJournal): written whole through a temporary file, read whole,
// never repaired. Every failure is a contracts::RecoveryError of kind
// storeUnavailable.
namespace vorna::recovery {

// Writes `value` with the system's JSON writer over `path` (mode 0600) with
// DurableChanges::replace, so a reader, and a power cut, finds the old or the
// new content and never a part. On failure "cannot write {file name}: {error}"
// is thrown and the old file stays in force, with no temporary file left.
void writeIndex(const contracts::Json& value, const std::string& path, storage::FileSystem& fs);

// Whether an index file is there to be read. Only a missing file (ENOENT)
// counts as absent: any other stat failure is left for the read to report, so
// that an index that is merely unreachable is never taken for an empty one and
// written over.
bool indexExists(const std::string& path, storage::FileSystem& fs);

// Reads and parses the file at `path`, then decodes it with `decode`.
// "cannot read {file name}: {error}" when it cannot be read; "recovery index
// {file name} is unreadable and was left untouched: {why}" when it is not JSON
// or `decode` throws contracts::DecodeError.
template <typename T>
T readIndex(const std::string& path, storage::FileSystem& fs,
            const std::function<T(const contracts::Json&)>& decode);

// Non-template parts, shared by the template above and IndexJournal.
namespace detail {
// The file's bytes; "cannot read {file name}: {error}".
std::string readIndexText(const std::string& path, storage::FileSystem& fs);
contracts::Json parseIndex(const std::string& path, storage::FileSystem& fs);
[[noreturn]] void throwUnreadable(const std::string& path, const std::string& why);
}  // namespace detail

template <typename T>
T readIndex(const std::string& path, storage::FileSystem& fs,
            const std::function<T(const contracts::Json&)>& decode) {
  contracts::Json json = detail::parseIndex(path, fs);
  try {
    return decode(json);
  } catch (const contracts::DecodeError& error) {
    detail::throwUnreadable(path, error.what());
  }
}

}  // namespace vorna::recovery
