#pragma once

#include <functional>
#include <string>
#include <vector>

#include "contracts/DecodeError.h"
#include "contracts/Json.h"
#include "storage/FileSystem.h"

// The service's JSON index files (identity.json, drafts.json, conflicts.json,
// operations.json): written whole through a temporary file, read whole, never
// repaired. Every failure is a contracts::RecoveryError of kind storeUnavailable.
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

// As readIndex for a JSON array of records: an empty list when the file is
// absent; otherwise each element decoded by `decodeElement`, a failure naming
// the element ("element {n}: {why}").
template <typename T>
std::vector<T> readIndexList(const std::string& path, storage::FileSystem& fs,
                             const std::function<T(const contracts::Json&)>& decodeElement);

// The JSON array of `records`, each written by its toJson.
template <typename T>
contracts::Json indexList(const std::vector<T>& records) {
  contracts::Json array = contracts::Json::array();
  for (const T& record : records) {
    array.push_back(record.toJson());
  }
  return array;
}

// Non-template parts, shared by the templates above.
namespace detail {
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

template <typename T>
std::vector<T> readIndexList(const std::string& path, storage::FileSystem& fs,
                             const std::function<T(const contracts::Json&)>& decodeElement) {
  if (!indexExists(path, fs)) {
    return {};
  }
  std::function<std::vector<T>(const contracts::Json&)> decodeList =
      [&](const contracts::Json& json) {
        if (!json.is_array()) {
          throw contracts::DecodeError("expected an array");
        }
        std::vector<T> list;
        list.reserve(json.size());
        for (size_t index = 0; index < json.size(); ++index) {
          try {
            list.push_back(decodeElement(json[index]));
          } catch (const contracts::DecodeError& error) {
            throw contracts::DecodeError("element " + std::to_string(index) + ": " + error.what());
          }
        }
        return list;
      };
  return readIndex(path, fs, decodeList);
}

}  // namespace vorna::recovery
