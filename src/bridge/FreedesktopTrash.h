#pragma once

#include <sys/types.h>

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "storage/DurableChanges.h"
#include "storage/FileSystem.h"

namespace vorna::bridge {

// Moves files into the trash in the freedesktop.org Trash layout, so that any
// file manager can list and restore what the editor trashed:
// each trash folder holds files/NAME (the item) and info/NAME.trashinfo (where
// it came from and when it went).
//
// - A file on the file system of the home trash goes to the home trash
//   ($XDG_DATA_HOME/Trash); its record holds the absolute original path.
// - Any other file goes to the trash at the top of its own file system:
//   $topdir/.Trash/$uid when $topdir/.Trash is a real folder (not a link) with
//   the sticky bit, else $topdir/.Trash-$uid; its record holds the path
//   relative to $topdir. Files are never copied across file systems to a trash.
//
// The record is created first, exclusively, and made durable; only then is
// the item moved. Every folder made on the way is durable in its parent. A
// NAME already used by either half is never reused, so nothing earlier in the
// trash is overwritten.
//
// Stateless apart from its settings; trash calls on different files may run on
// any threads at once.
class FreedesktopTrash {
 public:
  // A trash folder, and for a per-volume trash the top of its file system.
  struct Location {
    std::string directory;                    // holds files/ and info/
    std::optional<std::string> topDirectory;  // none for the home trash
    bool operator==(const Location&) const = default;
  };

  // `homeTrash`: the home trash folder, absolute. `now` stamps DeletionDate.
  explicit FreedesktopTrash(
      std::string homeTrash, storage::FileSystem& fs = storage::FileSystem::real(),
      std::function<std::time_t()> now = [] { return std::time(nullptr); });

  // $XDG_DATA_HOME/Trash when that variable holds an absolute path, else
  // $HOME/.local/share/Trash; read from the environment at each call (GLib
  // keeps the first answer for the life of the process). Nothing when neither
  // variable helps.
  static std::optional<std::string> defaultHomeTrash();

  // Moves the file at `path` (absolute, without symbolic links) into the trash
  // of its file system and returns the item's new path under files/.
  // Throws storage::FileOpError: "lstat" when the item cannot be examined,
  // "mkdir" when a trash folder cannot be made, "trash" (EPERM) when the
  // candidate folders are not safe to use, "open"/"write"/"fsync" for the
  // record, "rename" for the move (the record is then removed again).
  std::string trash(const std::string& path);

  // The trash that takes items from `path`'s file system, its folders made as
  // needed. Errors as trash().
  Location locationFor(const std::string& path);

  // Moves the file into the given trash; returns its path under files/.
  std::string trashInto(const Location& location, const std::string& path);

  // The text of a .trashinfo record: "[Trash Info]", "Path=" with the path
  // percent-encoded as in a URI path, "DeletionDate=" in local time as
  // YYYY-MM-DDThh:mm:ss, each line ending in a line feed.
  static std::string infoText(std::string_view recordedPath, std::time_t deletion);

  // The NAME of the `attempt`-th try (1-based) for an item called `name`:
  // "page.html", then "page.2.html", "page.3.html" ...; cut so that
  // NAME.trashinfo still fits a file name (255 bytes), without splitting a
  // UTF-8 character.
  static std::string trashName(std::string_view name, int attempt);

  // The per-user trash folder of the file system whose top folder is
  // `topDirectory`, made as needed ($topdir/.Trash/$uid or $topdir/.Trash-$uid,
  // as above). Errors as trash().
  std::string volumeTrash(const std::string& topDirectory);

 private:
  void makeTrashFolders(const std::string& directory);
  // Makes `folder` with mode 0700 unless it exists; it must then be a real
  // folder (not a link) owned by this user.
  void makePrivateFolder(const std::string& folder);

  std::string homeTrash_;
  storage::FileSystem& fs_;
  storage::DurableChanges changes_{fs_};
  std::function<std::time_t()> now_;
};

}  // namespace vorna::bridge
