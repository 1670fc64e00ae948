#include "recovery/FileStamp.h"

#include <time.h>

namespace vorna::recovery {
namespace {

bool earlier(const timespec& a, const timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

std::optional<FileStamp> FileStamp::of(const std::string& path, storage::FileSystem& fs) {
  struct stat info {};
  if (fs.stat(path, &info) != 0) {
    return std::nullopt;
  }
  return FileStamp{info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool FileStamp::settled() const {
  timespec clock{};
  return ::clock_gettime(CLOCK_REALTIME_COARSE, &clock) == 0 && earlier(modified, clock) &&
         earlier(changed, clock);
}

bool FileStamp::operator==(const FileStamp& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         sameTime(modified, other.modified) && sameTime(changed, other.changed);
}

}  // namespace vorna::recovery
