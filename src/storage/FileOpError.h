#pragma once

#include <exception>
#include <string>

namespace vorna::storage {

// The one error of the durable file primitives. Its description is the text
// that finally reaches the editor, so it names the failing call and the path.
class FileOpError : public std::exception {
 public:
  enum class Kind { syscall, shortWrite, notAFile, wouldOverwrite };

  // "{op} failed on {path}: {strerror} ({code})"
  static FileOpError syscall(std::string op, int code, std::string path);
  // syscall(op, errno, path): errno becomes an error here and nowhere else.
  static FileOpError fromErrno(std::string op, std::string path);
  // "short write to {path}"
  static FileOpError shortWrite(std::string path);
  // "not a regular file: {path}"
  static FileOpError notAFile(std::string path);
  // "refusing to overwrite existing path: {path}"
  static FileOpError wouldOverwrite(std::string path);

  // The system's text for an errno value, safe on any thread (strerror is not).
  static std::string systemMessage(int code);

  Kind kind() const { return kind_; }
  const std::string& op() const { return op_; }  // empty unless kind() is syscall
  int code() const { return code_; }             // 0 unless kind() is syscall
  const std::string& path() const { return path_; }
  const std::string& description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

  bool operator==(const FileOpError& other) const {
    return kind_ == other.kind_ && op_ == other.op_ && code_ == other.code_ &&
           path_ == other.path_;
  }

 private:
  FileOpError(Kind kind, std::string op, int code, std::string path);

  Kind kind_;
  std::string op_;
  int code_;
  std::string path_;
  std::string description_;
};

}  // namespace vorna::storage
