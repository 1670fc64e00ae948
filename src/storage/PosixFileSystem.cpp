#include "storage/PosixFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vorna::storage {
namespace {

template <typename Call>
auto retryInterrupted(Call call) {
  for (;;) {
    auto result = call();
    if (result >= 0 || errno != EINTR) {
      return result;
    }
  }
}

}  // namespace

FileSystem& FileSystem::real() {
  static PosixFileSystem instance;
  return instance;
}

int FileSystem::listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                                   std::vector<unsigned char>& types) {
  if (listDirectory(path, names) != 0) {
    return -1;
  }
  types.assign(names.size(), DT_UNKNOWN);
  return 0;
}

int PosixFileSystem::open(const std::string& path, int flags, mode_t mode) {
  return retryInterrupted(
      [&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, mode); });
}

int PosixFileSystem::close(int fd) {
  // A close interrupted by a signal has still released the descriptor on Linux;
  // retrying could close a descriptor another thread has just been given.
  return ::close(fd);
}

ssize_t PosixFileSystem::read(int fd, void* buffer, size_t count) {
  return retryInterrupted([&] { return ::read(fd, buffer, count); });
}

ssize_t PosixFileSystem::write(int fd, const void* buffer, size_t count) {
  return retryInterrupted([&] { return ::write(fd, buffer, count); });
}

int PosixFileSystem::fsync(int fd) {
  return retryInterrupted([&] { return ::fsync(fd); });
}

int PosixFileSystem::fstat(int fd, struct stat* out) {
  return ::fstat(fd, out);
}

int PosixFileSystem::rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str());
}

int PosixFileSystem::renameNoReplace(const std::string& from, const std::string& to) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
}

int PosixFileSystem::exchange(const std::string& a, const std::string& b) {
  return ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE);
}

int PosixFileSystem::unlink(const std::string& path) {
  return ::unlink(path.c_str());
}

int PosixFileSystem::mkdir(const std::string& path, mode_t mode) {
  return ::mkdir(path.c_str(), mode);
}

int PosixFileSystem::rmdir(const std::string& path) {
  return ::rmdir(path.c_str());
}

int PosixFileSystem::stat(const std::string& path, struct stat* out) {
  return ::stat(path.c_str(), out);
}

int PosixFileSystem::lstat(const std::string& path, struct stat* out) {
  return ::lstat(path.c_str(), out);
}

int PosixFileSystem::chmod(const std::string& path, mode_t mode) {
  return ::chmod(path.c_str(), mode);
}

ssize_t PosixFileSystem::readlink(const std::string& path, std::string& target) {
  // Most components asked about are not links at all; a stack buffer answers
  // those, and ordinary links, without touching the heap.
  char small[256];
  ssize_t length = ::readlink(path.c_str(), small, sizeof small);
  if (length < 0) {
    return length;
  }
  if (static_cast<size_t>(length) < sizeof small) {
    target.assign(small, static_cast<size_t>(length));
    return length;
  }
  // Links can be longer than any fixed buffer; grow until the answer fits.
  std::string buffer(sizeof small * 4, '\0');
  for (;;) {
    length = ::readlink(path.c_str(), buffer.data(), buffer.size());
    if (length < 0) {
      return length;
    }
    if (static_cast<size_t>(length) < buffer.size()) {
      buffer.resize(static_cast<size_t>(length));
      target = std::move(buffer);
      return length;
    }
    buffer.resize(buffer.size() * 2);
  }
}

namespace {

// Reads the folder's entries, without "." and "..", into `names` and, when
// given, their recorded types into `types`; both are left alone on failure.
int readFolder(const std::string& path, std::vector<std::string>& names,
               std::vector<unsigned char>* types) {
  DIR* dir = ::opendir(path.c_str());
  if (dir == nullptr) {
    return -1;
  }
  std::vector<std::string> found;
  std::vector<unsigned char> foundTypes;
  errno = 0;
  while (dirent* entry = ::readdir(dir)) {
    const char* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
      errno = 0;
      continue;
    }
    found.emplace_back(name);
    if (types != nullptr) {
      foundTypes.push_back(entry->d_type);
    }
    errno = 0;
  }
  int readError = errno;
  ::closedir(dir);
  if (readError != 0) {
    errno = readError;
    return -1;
  }
  names = std::move(found);
  if (types != nullptr) {
    *types = std::move(foundTypes);
  }
  return 0;
}

}  // namespace

int PosixFileSystem::listDirectory(const std::string& path, std::vector<std::string>& names) {
  return readFolder(path, names, nullptr);
}

int PosixFileSystem::listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                                        std::vector<unsigned char>& types) {
  return readFolder(path, names, &types);
}

}  // namespace vorna::storage
