#include "bridge/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "storage/FileOpError.h"
#include "storage/UniqueFd.h"

namespace vorna::bridge {
namespace {

constexpr size_t kProbeSize = 16 * 1024;

}  // namespace

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
  const size_t expected = static_cast<size_t>(std::max<off_t>(info.st_size, 0));
  contracts::Bytes bytes(expected, '\0');
  size_t used = 0;
  // Fills the measured size first; past it, reads go through a small probe so
  // that confirming the end costs no reallocation of a large buffer. Only a
  // file that grew meanwhile is appended to.
  char probe[kProbeSize];
  for (;;) {
    const bool filling = used < bytes.size();
    char* into = filling ? bytes.data() + used : probe;
    size_t room = filling ? bytes.size() - used : sizeof probe;
    ssize_t got = fs.read(fd.get(), into, room);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw storage::FileOpError::fromErrno("read", path);
    }
    if (got == 0) {
      break;
    }
    if (filling) {
      used += static_cast<size_t>(got);
    } else {
      bytes.append(probe, static_cast<size_t>(got));
      used = bytes.size();
    }
  }
  bytes.resize(used);
  return bytes;
}

}  // namespace vorna::bridge
