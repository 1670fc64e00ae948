#pragma once

#include "storage/FileSystem.h"

namespace vorna::storage {

// Passes every call to another file system. Derive from it to change one or two
// calls (to count them, or to fail them) and keep the rest real.
class ForwardingFileSystem : public FileSystem {
 public:
  explicit ForwardingFileSystem(FileSystem& target) : target_(target) {}

  int open(const std::string& path, int flags, mode_t mode) override {
    return target_.open(path, flags, mode);
  }
  int close(int fd) override { return target_.close(fd); }
  ssize_t read(int fd, void* buffer, size_t count) override {
    return target_.read(fd, buffer, count);
  }
  ssize_t write(int fd, const void* buffer, size_t count) override {
    return target_.write(fd, buffer, count);
  }
  int fsync(int fd) override { return target_.fsync(fd); }
  int fstat(int fd, struct stat* out) override { return target_.fstat(fd, out); }
  int rename(const std::string& from, const std::string& to) override {
    return target_.rename(from, to);
  }
  int renameNoReplace(const std::string& from, const std::string& to) override {
    return target_.renameNoReplace(from, to);
  }
  int exchange(const std::string& a, const std::string& b) override {
    return target_.exchange(a, b);
  }
  int unlink(const std::string& path) override { return target_.unlink(path); }
  int mkdir(const std::string& path, mode_t mode) override { return target_.mkdir(path, mode); }
  int rmdir(const std::string& path) override { return target_.rmdir(path); }
  int stat(const std::string& path, struct stat* out) override { return target_.stat(path, out); }
  int lstat(const std::string& path, struct stat* out) override {
    return target_.lstat(path, out);
  }
  int chmod(const std::string& path, mode_t mode) override { return target_.chmod(path, mode); }
  ssize_t readlink(const std::string& path, std::string& target) override {
    return target_.readlink(path, target);
  }
  int listDirectory(const std::string& path, std::vector<std::string>& names) override {
    return target_.listDirectory(path, names);
  }
  int listDirectoryTyped(const std::string& path, std::vector<std::string>& names,
                         std::vector<unsigned char>& types) override {
    return target_.listDirectoryTyped(path, names, types);
  }

 protected:
  FileSystem& target() { return target_; }

 private:
  FileSystem& target_;
};

}  // namespace vorna::storage
