#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "storage/FileSystem.h"

namespace vorna::bridge {

// Makes the folder `path` (absolute) and every missing folder above it, each new
// one with `mode` (less the umask). An existing folder is success. Throws
// storage::FileOpError with op "mkdir" naming the first folder that could not
// be made; a file in the way fails with EEXIST, and one in the way of a folder
// above fails with ENOTDIR. `made`, when given, is called with each folder
// right after this call made it (never for one that was there already).
void makeFolders(const std::string& path, mode_t mode, storage::FileSystem& fs,
                 const std::function<void(const std::string&)>& made = nullptr);

}  // namespace vorna::bridge
