#pragma once

#include <utility>

#include "storage/FileSystem.h"

namespace vorna::storage {

// Owns one open descriptor and closes it through the file system it came from.
class UniqueFd {
 public:
  UniqueFd() = default;
  UniqueFd(FileSystem& fs, int fd) : fs_(&fs), fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept
      : fs_(other.fs_), fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      fs_ = other.fs_;
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }

  // Closes now and returns close's result (0 when nothing was open).
  int reset() {
    int result = 0;
    if (fd_ >= 0) {
      result = fs_->close(fd_);
      fd_ = -1;
    }
    return result;
  }

 private:
  FileSystem* fs_ = nullptr;
  int fd_ = -1;
};

}  // namespace vorna::storage
