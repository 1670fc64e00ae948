#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "recovery/RecoveryEnvironment.h"
#include "storage/FileSystem.h"

// Where a workspace's recovery store lies and how the workspace is recognised.
// Everything reaches the disk through the given file system.
namespace vorna::recovery {

// 32 lower-case hex digits naming the workspace folder at the canonical path
// `root`: the start of the SHA-256 of root, NUL, st_dev, NUL, st_ino (root
// alone when stat fails). The device number is dev_t, an unsigned 64-bit value
// on Linux, and is written as that unsigned decimal; a folder made anew at the
// same path has another inode and so another identifier.
std::string workspaceIdentifier(const std::string& root, storage::FileSystem& fs);

// The st_dev of the file system holding `path`; nothing when stat fails.
std::optional<dev_t> volumeIdentifier(const std::string& path, storage::FileSystem& fs);

// The highest folder that is `path` or above it on the same device as `path`:
// the top of the file system holding it; "/" when `path` cannot be stat'ed.
std::string highestAncestorOnSameDevice(const std::string& path, storage::FileSystem& fs);

// The mount point holding the canonical `path`: the longest mount point of the
// mount table that is `path` or one of its ancestors. When the table cannot be
// read or names none, the highest ancestor on the same device as `path`, which
// misses only bind mounts within one file system; "/" when nothing can be told.
std::string volumeRoot(const std::string& path, const std::string& mountTable,
                       storage::FileSystem& fs);

// The folder under which workspace stores are kept when none was given: the
// per-user data folder + "Vorna/Recovery" when it is on the same volume as
// `root`; otherwise "{volume root}/.VornaRecovery/{uid}" on the workspace's own
// volume, so that retained copies never cross to a disk that may be absent next
// time. Creates the folders it returns, each durable in its parent. Throws
// storeUnavailable "no writable recovery location for {root}: {error}" when the
// fallback cannot be created.
std::string defaultStoreRoot(const std::string& root, const RecoveryEnvironment& environment,
                             storage::FileSystem& fs);

}  // namespace vorna::recovery
