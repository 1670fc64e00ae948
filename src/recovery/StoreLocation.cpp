#include "recovery/StoreLocation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "contracts/RecoveryError.h"
#include "recovery/PathForms.h"
#include "storage/DurableChanges.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/PathNames.h"

namespace vorna::recovery {
namespace {

using contracts::RecoveryError;
using storage::FileOpError;
using storage::joinPath;

constexpr mode_t kPrivateFolder = 0700;
// Shared by every user of the volume, like /tmp: anyone may add a folder, only
// its owner may remove it.
constexpr mode_t kSharedParent = 01777;

// Mount points in /proc/self/mountinfo escape space, tab, newline and
// backslash as three octal digits.
std::string unescapeMountPoint(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      std::string_view digits = text.substr(i + 1, 3);
      bool octal = true;
      int value = 0;
      for (char c : digits) {
        octal = octal && c >= '0' && c <= '7';
        value = value * 8 + (c - '0');
      }
      if (octal) {
        out += static_cast<char>(value);
        i += 3;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

// The fifth field of each line of mountinfo.
std::optional<std::string> mountPointOfLine(std::string_view line) {
  size_t start = 0;
  for (int field = 0; field < 4; ++field) {
    size_t space = line.find(' ', start);
    if (space == std::string_view::npos) {
      return std::nullopt;
    }
    start = space + 1;
  }
  size_t end = line.find(' ', start);
  if (end == std::string_view::npos) {
    end = line.size();
  }
  if (end == start) {
    return std::nullopt;
  }
  return unescapeMountPoint(line.substr(start, end - start));
}

std::optional<std::string> longestMountPointHolding(const std::string& path,
                                                    const std::string& mountTable,
                                                    storage::FileSystem& fs) {
  std::string table;
  try {
    table = storage::readFileWhole(mountTable, fs);
  } catch (const FileOpError&) {
    return std::nullopt;
  }
  std::optional<std::string> best;
  size_t start = 0;
  while (start < table.size()) {
    size_t end = table.find('\n', start);
    if (end == std::string::npos) {
      end = table.size();
    }
    std::optional<std::string> point =
        mountPointOfLine(std::string_view(table).substr(start, end - start));
    if (point && point->starts_with('/') && isSameOrInside(path, *point) &&
        (!best || point->size() > best->size())) {
      best = std::move(point);
    }
    start = end + 1;
  }
  return best;
}

}  // namespace

std::string highestAncestorOnSameDevice(const std::string& path, storage::FileSystem& fs) {
  struct stat st {};
  if (fs.stat(path, &st) != 0) {
    return "/";
  }
  std::string current = path;
  while (current != "/") {
    std::string parent = storage::parentFolder(current);
    struct stat up {};
    if (fs.stat(parent, &up) != 0 || up.st_dev != st.st_dev) {
      return current;
    }
    current = parent;
  }
  return current;
}

std::string workspaceIdentifier(const std::string& root, storage::FileSystem& fs) {
  std::string key = root;
  struct stat st {};
  if (fs.stat(root, &st) == 0) {
    key += '\0';
    key += std::to_string(static_cast<unsigned long long>(st.st_dev));
    key += '\0';
    key += std::to_string(static_cast<unsigned long long>(st.st_ino));
  }
  return storage::Fingerprint::ofBytes(key).hex.substr(0, 32);
}

std::optional<dev_t> volumeIdentifier(const std::string& path, storage::FileSystem& fs) {
  struct stat st {};
  if (fs.stat(path, &st) != 0) {
    return std::nullopt;
  }
  return st.st_dev;
}

std::string volumeRoot(const std::string& path, const std::string& mountTable,
                       storage::FileSystem& fs) {
  if (std::optional<std::string> point = longestMountPointHolding(path, mountTable, fs)) {
    return *point;
  }
  return highestAncestorOnSameDevice(path, fs);
}

std::string defaultStoreRoot(const std::string& root, const RecoveryEnvironment& environment,
                             storage::FileSystem& fs) {
  storage::DurableChanges changes(fs);
  try {
    std::optional<std::string> dataHome = environment.userDataDirectory();
    if (dataHome) {
      changes.makeFolder(*dataHome, kPrivateFolder);
      std::string folder = joinPath(joinPath(*dataHome, "Vorna"), "Recovery");
      changes.makeFolder(folder, kPrivateFolder);
      std::optional<dev_t> rootVolume = volumeIdentifier(root, fs);
      std::optional<dev_t> folderVolume = volumeIdentifier(folder, fs);
      if (rootVolume && folderVolume && *rootVolume == *folderVolume) {
        return folder;
      }
    }
  } catch (const FileOpError&) {
    // The per-user folder is only a preference; the workspace's volume serves.
  }
  std::string shared = joinPath(volumeRoot(root, environment.mountTable, fs), ".VornaRecovery");
  std::string folder = joinPath(shared, std::to_string(::getuid()));
  try {
    struct stat st {};
    if (fs.stat(shared, &st) != 0) {
      changes.makeFolder(shared, kSharedParent);
      // mkdir honours the umask, which would keep other users out.
      fs.chmod(shared, kSharedParent);
    }
    changes.makeFolder(folder, kPrivateFolder);
  } catch (const FileOpError& error) {
    throw RecoveryError::storeUnavailable("no writable recovery location for " + root + ": " +
                                          error.description());
  }
  return folder;
}

}  // namespace vorna::recovery
