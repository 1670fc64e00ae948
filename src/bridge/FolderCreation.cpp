#include "bridge/FolderCreation.h"

#include <sys/stat.h>

#include <cerrno>

#include "storage/FileOpError.h"

namespace vorna::bridge {

void makeFolders(const std::string& path, mode_t mode, storage::FileSystem& fs,
                 const std::function<void(const std::string&)>& made) {
  struct stat info {};
  if (fs.stat(path, &info) == 0 && S_ISDIR(info.st_mode)) {
    return;
  }
  // Walk down from the top so that every missing folder is made in order; an
  // existing component costs one failed mkdir, which is cheaper than asking
  // first and still right when another thread makes it meanwhile.
  size_t end = 0;
  while (end != std::string::npos) {
    end = path.find('/', end + 1);
    std::string prefix = path.substr(0, end);
    if (prefix.empty() || prefix.back() == '/') {
      continue;
    }
    if (fs.mkdir(prefix, mode) == 0) {
      if (made) {
        made(prefix);
      }
      continue;
    }
    const int code = errno;
    if (code == EEXIST && fs.stat(prefix, &info) == 0 && S_ISDIR(info.st_mode)) {
      continue;
    }
    throw storage::FileOpError::syscall("mkdir", code, prefix);
  }
}

}  // namespace vorna::bridge
