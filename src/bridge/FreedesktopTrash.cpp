#include "bridge/FreedesktopTrash.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "bridge/PathExtension.h"
#include "contracts/GUniquePtr.h"
#include "recovery/StoreLocation.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"
#include "storage/UserFolders.h"

namespace vorna::bridge {
namespace {

using storage::FileOpError;

constexpr std::string_view kInfoSuffix = ".trashinfo";
constexpr size_t kNameMax = 255;
// An extension longer than this is treated as part of the stem when a name
// must be cut, so that a freak name cannot leave no room for the stem.
constexpr size_t kLongestKeptExtension = 64;
// Beyond this many taken names something is wrong with the trash folder.
constexpr int kMostAttempts = 10000;

bool isContinuationByte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

FreedesktopTrash::FreedesktopTrash(std::string homeTrash, storage::FileSystem& fs,
                                   std::function<std::time_t()> now)
    : homeTrash_(std::move(homeTrash)), fs_(fs), now_(std::move(now)) {}

std::optional<std::string> FreedesktopTrash::defaultHomeTrash() {
  std::optional<std::string> dataHome = storage::xdgFolder("XDG_DATA_HOME", ".local/share");
  if (!dataHome) {
    return std::nullopt;
  }
  return storage::joinPath(*dataHome, "Trash");
}

std::string FreedesktopTrash::trash(const std::string& path) {
  return trashInto(locationFor(path), path);
}

FreedesktopTrash::Location FreedesktopTrash::locationFor(const std::string& path) {
  struct stat item {};
  if (fs_.lstat(path, &item) != 0) {
    throw FileOpError::fromErrno("lstat", path);
  }
  // The home trash's own folder may not exist yet; the nearest folder above it
  // that does tells which file system it will be on.
  std::string probe = homeTrash_;
  struct stat home {};
  while (fs_.stat(probe, &home) != 0 && probe != "/") {
    probe = storage::parentFolder(probe);
  }
  if (home.st_dev == item.st_dev) {
    changes_.makeFolder(homeTrash_, 0700);
    makeTrashFolders(homeTrash_);
    return Location{homeTrash_, std::nullopt};
  }
  // The item is a file, so its folder is on its device.
  std::string top = recovery::highestAncestorOnSameDevice(storage::parentFolder(path), fs_);
  return Location{volumeTrash(top), top};
}

std::string FreedesktopTrash::volumeTrash(const std::string& topDirectory) {
  const std::string uid = std::to_string(::getuid());
  const std::string shared = storage::joinPath(topDirectory, ".Trash");
  struct stat info {};
  // A shared .Trash is trusted only as the administrator set it up: a real
  // folder with the sticky bit, so that users cannot remove each other's
  // folders in it. A link could lead anywhere.
  if (fs_.lstat(shared, &info) == 0 && S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0) {
    const std::string own = storage::joinPath(shared, uid);
    try {
      makePrivateFolder(own);
      makeTrashFolders(own);
      return own;
    } catch (const FileOpError&) {
      // Fall back to the per-user folder at the top, as every file manager does.
    }
  }
  const std::string own = storage::joinPath(topDirectory, ".Trash-" + uid);
  makePrivateFolder(own);
  makeTrashFolders(own);
  return own;
}

void FreedesktopTrash::makeTrashFolders(const std::string& directory) {
  makePrivateFolder(storage::joinPath(directory, "files"));
  makePrivateFolder(storage::joinPath(directory, "info"));
}

void FreedesktopTrash::makePrivateFolder(const std::string& folder) {
  struct stat info {};
  if (fs_.lstat(folder, &info) != 0) {
    changes_.makeFolder(folder, 0700);
  }
  if (fs_.lstat(folder, &info) != 0) {
    throw FileOpError::fromErrno("lstat", folder);
  }
  if (!S_ISDIR(info.st_mode) || info.st_uid != ::getuid()) {
    throw FileOpError::syscall("trash", EPERM, folder);
  }
}

std::string FreedesktopTrash::trashInto(const Location& location, const std::string& path) {
  std::string recorded = path;
  if (location.topDirectory) {
    const std::string& top = *location.topDirectory;
    recorded = path.substr(top == "/" ? 1 : top.size() + 1);
  }
  const std::string text = infoText(recorded, now_());
  const std::string files = storage::joinPath(location.directory, "files");
  const std::string info = storage::joinPath(location.directory, "info");
  const std::string name = storage::lastComponent(path);
  for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
    const std::string trashName = FreedesktopTrash::trashName(name, attempt);
    const std::string target = storage::joinPath(files, trashName);
    struct stat taken {};
    if (fs_.lstat(target, &taken) == 0) {
      continue;  // an item without its record: the name is still taken
    }
    const std::string record = storage::joinPath(info, trashName + std::string(kInfoSuffix));
    // The record is durable before the item can be in the trash, so the item
    // is never there without it.
    try {
      changes_.createExclusively(record, text, 0600);
    } catch (const FileOpError& error) {
      if (error.op() == "open" && error.code() == EEXIST) {
        continue;
      }
      throw;
    }
    try {
      changes_.moveIntoFolder(path, target);
    } catch (const FileOpError& error) {
      // A record without its item would show a ghost in the file manager, so
      // it goes again when the move never began. After any later failure the
      // item may be in the trash, even if only until a power cut undoes its
      // way back, and an item must never be there without its record.
      const bool neverBegan =
          error.kind() == FileOpError::Kind::wouldOverwrite ||
          (error.path() == path &&
           (error.op() == "rename" || error.op() == "open" || error.op() == "read"));
      if (neverBegan) {
        fs_.unlink(record);
      }
      if (error.kind() == FileOpError::Kind::wouldOverwrite) {
        continue;
      }
      throw;
    }
    return target;
  }
  throw FileOpError::syscall("trash", EEXIST, path);
}

std::string FreedesktopTrash::infoText(std::string_view recordedPath, std::time_t deletion) {
  const std::string path(recordedPath);
  contracts::GText escaped(
      g_uri_escape_string(path.c_str(), G_URI_RESERVED_CHARS_ALLOWED_IN_PATH, FALSE));
  std::tm local{};
  localtime_r(&deletion, &local);
  char date[32];
  size_t length = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::string text = "[Trash Info]\nPath=";
  text += escaped.get();
  text += "\nDeletionDate=";
  text.append(date, length);
  text += '\n';
  return text;
}

std::string FreedesktopTrash::trashName(std::string_view name, int attempt) {
  std::string_view extension = pathExtension(name);
  if (extension.size() > kLongestKeptExtension) {
    extension = {};
  }
  const size_t dotted = extension.empty() ? 0 : extension.size() + 1;
  std::string_view stem = name.substr(0, name.size() - dotted);
  const std::string counter = attempt > 1 ? "." + std::to_string(attempt) : std::string();
  const size_t room = kNameMax - kInfoSuffix.size() - counter.size() - dotted;
  if (stem.size() > room) {
    size_t cut = room;
    while (cut > 0 && isContinuationByte(stem[cut])) {
      --cut;
    }
    stem = stem.substr(0, cut);
  }
  std::string result(stem);
  result += counter;
  result += name.substr(name.size() - dotted);
  return result;
}

}  // namespace vorna::bridge
