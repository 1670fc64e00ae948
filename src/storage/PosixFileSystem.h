#pragma once

#include "storage/FileSystem.h"

namespace vorna::storage {

// The real file system: thin wrappers over the system calls that add
// O_CLOEXEC to every open and retry calls interrupted by a signal.
class PosixFileSystem final : public FileSystem {
 public:
  int open(const std::string& path, int flags, mode_t mode) override;
  int close(int fd) override;
  ssize_t read(int fd, void* buffer, size_t count) override;
  ssize_t write(int fd, const void* buffer, size_t count) override;
  int fsync(int fd) override;
  int fstat(int fd, struct stat* out) override;
  int rename(const std::string& from, const std::string& to) override;
  int renameNoReplace(const std::string& from, const std::string& to) override;
  int exchange(const std::string& a, const std::string& b) override;
  int unlink(const std::string& path) override;
  int mkdir(const std::string& path, mode_t mode) override;
  int rmdir(const std::string& path) override;
  int stat(const std::string& path, struct stat* out) override;
  int lstat(const std::string& path, struct stat* out) override;
  int chmod(const std::string& path, mode_t mode) override;
  ssize_t readlink(const std::string& path, std::string& target) override;
  int listDirectory(const std::string& path, std::vector<std::string>& names) override;
  int listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                         std::vector<unsigned char>& types) override;
};

}  // namespace vorna::storage
