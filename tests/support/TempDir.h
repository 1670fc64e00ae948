#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace vorna::testing {

// A fresh folder under $TMPDIR (or /tmp) for one test, removed with all its
// contents (read-only files included) when the object goes.
class TempDir {
 public:
  enum class Backing {
    disk,
    // /dev/shm when it is a writable folder, else as disk. For tests that
    // flush thousands of times to check the order and outcome of file
    // operations (not survival of a power cut), where a real disk's flushes
    // would only add time.
    memory,
  };

  explicit TempDir(Backing backing = Backing::disk);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + relative
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

  // Test conveniences that bypass the seam; they fail the test on error.
  void write(const std::string& relative, const std::string& bytes, unsigned mode = 0644) const;
  std::string read(const std::string& relative) const;
  bool exists(const std::string& relative) const;
  void makeFolder(const std::string& relative) const;
  void symlink(const std::string& target, const std::string& relative) const;

 private:
  std::string path_;
};

// Reads a whole file by absolute path; fails the test when it cannot.
std::string readFile(const std::string& path);
// lstat of `path`; fails the test when it cannot.
struct stat statOf(const std::string& path);
// The permission bits of `path`, from statOf.
unsigned modeOf(const std::string& path);
// Names in `folder` that start with `prefix`, sorted; none for a missing folder.
std::vector<std::string> namesIn(const std::string& folder, const std::string& prefix = "");

}  // namespace vorna::testing
