#include "bridge/ItemFacts.h"

#include <sys/stat.h>

namespace vorna::bridge {

std::string_view itemKindName(ItemKind kind) {
  return kind == ItemKind::directory ? "directory" : "file";
}

std::optional<ItemKind> kindOf(const std::string& path, storage::FileSystem& fs) {
  struct stat info {};
  if (fs.stat(path, &info) != 0) {
    return std::nullopt;
  }
  return S_ISDIR(info.st_mode) ? ItemKind::directory : ItemKind::file;
}

bool isRegularFile(const std::string& path, storage::FileSystem& fs) {
  struct stat info {};
  return fs.stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

ModificationTime ModificationTime::of(const timespec& time) {
  constexpr std::int64_t kNanosPerMilli = 1'000'000;
  const std::int64_t whole =
      static_cast<std::int64_t>(time.tv_sec) * 1000 + time.tv_nsec / kNanosPerMilli;
  const std::int64_t rest = time.tv_nsec % kNanosPerMilli;
  // tv_nsec is never negative, so the value is whole + rest/1e6 and its sign is
  // that of tv_sec: a positive half rounds up, a negative half rounds down.
  std::int64_t rounded = whole;
  if (time.tv_sec >= 0 ? rest >= kNanosPerMilli / 2 : rest > kNanosPerMilli / 2) {
    rounded += 1;
  }
  return ModificationTime{
      static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9, rounded};
}

ModificationTime modificationTime(const std::string& path, storage::FileSystem& fs) {
  struct stat info {};
  if (fs.lstat(path, &info) != 0) {
    return {};
  }
  return ModificationTime::of(info.st_mtim);
}

}  // namespace vorna::bridge
