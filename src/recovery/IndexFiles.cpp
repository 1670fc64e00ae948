#include "recovery/IndexFiles.h"

#include <sys/stat.h>

#include <cerrno>

#include "contracts/RecoveryError.h"
#include "storage/DurableChanges.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"

namespace vorna::recovery {

using contracts::RecoveryError;
using storage::FileOpError;

void writeIndex(const contracts::Json& value, const std::string& path, storage::FileSystem& fs) {
  const std::string name = storage::lastComponent(path);
  std::string text = contracts::writeJson(value);
  // The writer answers "{}" for a value it cannot write; writing that would
  // silently empty the index, so it is a failure like any other.
  if (text == "{}" && !(value.is_object() && value.empty())) {
    throw RecoveryError::storeUnavailable("cannot write " + name +
                                          ": it holds text that is not valid UTF-8");
  }
  try {
    storage::DurableChanges(fs).replace(path, text, 0600);
  } catch (const FileOpError& error) {
    throw RecoveryError::storeUnavailable("cannot write " + name + ": " + error.description());
  }
}

bool indexExists(const std::string& path, storage::FileSystem& fs) {
  struct stat st {};
  return fs.stat(path, &st) == 0 || errno != ENOENT;
}

namespace detail {

std::string readIndexText(const std::string& path, storage::FileSystem& fs) {
  try {
    return storage::readFileWhole(path, fs);
  } catch (const FileOpError& error) {
    throw RecoveryError::storeUnavailable("cannot read " + storage::lastComponent(path) + ": " +
                                          error.description());
  }
}

contracts::Json parseIndex(const std::string& path, storage::FileSystem& fs) {
  std::string text = readIndexText(path, fs);
  std::optional<contracts::Json> json = contracts::parseJson(text);
  if (!json) {
    throwUnreadable(path, "not valid JSON");
  }
  return std::move(*json);
}

void throwUnreadable(const std::string& path, const std::string& why) {
  throw RecoveryError::storeUnavailable("recovery index " + storage::lastComponent(path) +
                                        " is unreadable and was left untouched: " + why);
}

}  // namespace detail
}  // namespace vorna::recovery
