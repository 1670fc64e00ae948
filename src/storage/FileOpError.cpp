#include "storage/FileOpError.h"

#include <cerrno>
#include <cstring>

namespace vorna::storage {

std::string FileOpError::systemMessage(int code) {
  const char* text = ::strerrordesc_np(code);
  return text != nullptr ? text : "Unknown error " + std::to_string(code);
}

FileOpError::FileOpError(Kind kind, std::string op, int code, std::string path)
    : kind_(kind), op_(std::move(op)), code_(code), path_(std::move(path)) {
  switch (kind_) {
    case Kind::syscall:
      description_ = op_ + " failed on " + path_ + ": " + systemMessage(code_) + " (" +
                     std::to_string(code_) + ")";
      break;
    case Kind::shortWrite:
      description_ = "short write to " + path_;
      break;
    case Kind::notAFile:
      description_ = "not a regular file: " + path_;
      break;
    case Kind::wouldOverwrite:
      description_ = "refusing to overwrite existing path: " + path_;
      break;
  }
}

FileOpError FileOpError::syscall(std::string op, int code, std::string path) {
  return FileOpError(Kind::syscall, std::move(op), code, std::move(path));
}

FileOpError FileOpError::fromErrno(std::string op, std::string path) {
  return syscall(std::move(op), errno, std::move(path));
}

FileOpError FileOpError::shortWrite(std::string path) {
  return FileOpError(Kind::shortWrite, "", 0, std::move(path));
}

FileOpError FileOpError::notAFile(std::string path) {
  return FileOpError(Kind::notAFile, "", 0, std::move(path));
}

FileOpError FileOpError::wouldOverwrite(std::string path) {
  return FileOpError(Kind::wouldOverwrite, "", 0, std::move(path));
}

}  // namespace vorna::storage
