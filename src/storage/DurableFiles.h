#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "contracts/Bytes.h"
#include "storage/FileSystem.h"

// The file operations whose effects on disk are known exactly. Everything that
// must not lose a file uses these and no others. None keeps state; all may run
// on any thread (callers serialise writes to the same paths). Failures are
// thrown as FileOpError unless a function says otherwise.
namespace vorna::storage {

// Creates (exclusively when asked, else truncating) `path` with `mode`, writes
// every byte, fsyncs, closes. A failure after the open leaves the partly
// written file in place. Errors: "open" (EEXIST when exclusive and present),
// "write", shortWrite, "fsync".
void writeDurably(std::string_view bytes, const std::string& path, bool exclusive, mode_t mode,
                  FileSystem& fs = FileSystem::real());

// Writes every byte to an open descriptor, retrying interrupted writes.
// Errors: "write" or shortWrite (a write that made no progress).
void writeAll(int fd, std::string_view bytes, const std::string& path,
              FileSystem& fs = FileSystem::real());

// Reads an open descriptor to its end, in one allocation when fstat knows the
// size. Error: "read".
contracts::Bytes readAll(int fd, const std::string& path, FileSystem& fs = FileSystem::real());

// Opens, reads whole and closes a regular file; anything else (a pipe, a
// device, a socket) is notAFile, and the open never waits for a pipe's writer.
// Errors: "open", "fstat", notAFile, "read".
contracts::Bytes readFileWhole(const std::string& path, FileSystem& fs = FileSystem::real());

// rename(2): replaces `destination` atomically. Error: "rename" on `source`.
void renameReplace(const std::string& source, const std::string& destination,
                   FileSystem& fs = FileSystem::real());

// Exchanges two directory entries on one file system in one atomic step.
// Error: "renameat2(RENAME_EXCHANGE)" on `a` (ENOENT when either is missing,
// EXDEV across file systems, EINVAL where the file system cannot exchange).
// There is deliberately no non-atomic fallback.
void swapPaths(const std::string& a, const std::string& b, FileSystem& fs = FileSystem::real());

// Moves a file or a folder in one rename that never replaces: wouldOverwrite
// (destination) when anything is there, also when it came after any look the
// caller took. Where the file system cannot rename without replacing (EINVAL)
// it looks first, which leaves only the moment between look and rename.
// Errors: wouldOverwrite, "rename" on `source` (EXDEV across file systems).
void moveWithoutReplacing(const std::string& source, const std::string& destination,
                          FileSystem& fs = FileSystem::real());

// Moves a file so that, where possible, it stays the same inode, never
// replacing anything (as moveWithoutReplacing). Across file systems it copies
// (exclusive, mode 0644, flushed) and removes the source, returning true.
// Errors: wouldOverwrite, "rename", and the copy's errors.
bool moveFilePreservingInode(const std::string& source, const std::string& destination,
                             FileSystem& fs = FileSystem::real());

// Best effort, never report failure: callers never depend on their success.
void fsyncDirectory(const std::string& directory, FileSystem& fs = FileSystem::real());
void copyPermissions(const std::string& from, const std::string& to,
                     FileSystem& fs = FileSystem::real());
void makeReadOnly(const std::string& path, FileSystem& fs = FileSystem::real());

// The op text of swapPaths' error.
inline constexpr const char* kSwapOp = "renameat2(RENAME_EXCHANGE)";

}  // namespace vorna::storage
