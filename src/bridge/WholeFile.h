#pragma once

#include <string>

#include "contracts/Bytes.h"
#include "storage/FileSystem.h"

namespace vorna::bridge {

// Reads a whole file with storage::readAll (one buffer sized from the open
// file; a file that grows meanwhile is still read to its end). Only regular files are read: the open does not wait for a
// pipe's writer, and anything else fails with FileOpError notAFile. Throws
// storage::FileOpError with op "open", "fstat" or "read" otherwise.
contracts::Bytes readWholeFile(const std::string& path, storage::FileSystem& fs);

}  // namespace vorna::bridge
