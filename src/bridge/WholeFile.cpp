#include "bridge/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/UniqueFd.h"

namespace vorna::bridge {

contracts::Bytes readWholeFile(const std::string& path, storage::FileSystem& fs) {
  // O_NONBLOCK only matters for what is refused below: a pipe would otherwise
  // hold the open until a writer came.
  storage::UniqueFd fd(fs, fs.open(path, O_RDONLY | O_NONBLOCK, 0));
  if (!fd) {
    throw storage::FileOpError::fromErrno("open", path);
  }
  struct stat info {};
  if (fs.fstat(fd.get(), &info) != 0) {
    throw storage::FileOpError::fromErrno("fstat", path);
  }
  if (!S_ISREG(info.st_mode)) {
    throw storage::FileOpError::notAFile(path);
  }
  return storage::readAll(fd.get(), path, fs);
}

}  // namespace vorna::bridge
