#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "contracts/Bytes.h"
#include "storage/FileSystem.h"
#include "storage/UniqueFd.h"

// Whole-file reading and writing through the seam. Writing here flushes
// nothing: a change that must outlive a power cut goes through DurableChanges.
// None keeps state; all may run on any thread. Failures are thrown as
// FileOpError unless a function says otherwise.
namespace vorna::storage {

// Writes every byte to an open descriptor, retrying interrupted writes.
// Errors: "write" or shortWrite (a write that made no progress).
void writeAll(int fd, std::string_view bytes, const std::string& path,
              FileSystem& fs = FileSystem::real());

// Reads an open descriptor to its end, in one allocation when fstat knows the
// size. Error: "read".
contracts::Bytes readAll(int fd, const std::string& path, FileSystem& fs = FileSystem::real());

// Opens a regular file for reading; anything else (a pipe, a device, a
// socket) is notAFile, and the open never waits for a pipe's writer: only a
// regular file has an end to read to. Errors: "open", "fstat", notAFile.
UniqueFd openRegularFile(const std::string& path, FileSystem& fs = FileSystem::real());

// Opens, reads whole and closes a regular file; anything else (a pipe, a
// device, a socket) is notAFile, and the open never waits for a pipe's writer.
// Errors: "open", "fstat", notAFile, "read".
contracts::Bytes readFileWhole(const std::string& path, FileSystem& fs = FileSystem::real());

// Best effort, never report failure: callers never depend on their success.
void copyPermissions(const std::string& from, const std::string& to,
                     FileSystem& fs = FileSystem::real());
void makeReadOnly(const std::string& path, FileSystem& fs = FileSystem::real());

// The op text of an exchange's error (DurableChanges::exchange).
inline constexpr const char* kSwapOp = "renameat2(RENAME_EXCHANGE)";

}  // namespace vorna::storage
