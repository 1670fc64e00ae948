#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "storage/FileSystem.h"

namespace vorna::recovery {

// What a file's or folder's status says about its content: device, inode,
// size, modification and change times. A folder whose stamp is unchanged has
// gained and lost no name; an index snapshot, only ever replaced by a rename,
// has not been replaced, and a journal, only ever appended to or replaced, has
// not grown. Lets what was read from a file be kept until the file changes, at
// the cost of one status call.
//
// File times come from the kernel's coarse clock or a finer one, so a change
// made within the same tick as the one before it could leave them as they
// were. A stamp may stand for what is read after it only when, at the moment
// it is taken, even the coarse clock is past both times (settled): any later
// change then carries a later time.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  // The stamp of `path` (links followed), or nothing when it has no status.
  static std::optional<FileStamp> of(const std::string& path, storage::FileSystem& fs);
  bool settled() const;
  bool operator==(const FileStamp& other) const;
};

}  // namespace vorna::recovery
