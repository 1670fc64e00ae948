#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vorna::testing {

TempDir::TempDir(Backing backing) {
  const char* base = std::getenv("TMPDIR");
  std::string folder = base && *base ? base : "/tmp";
  if (backing == Backing::memory && ::access("/dev/shm", W_OK | X_OK) == 0) {
    folder = "/dev/shm";
  }
  std::string pattern = folder + "/vorna-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp failed for " << pattern;
  }
  // Canonical, so tests compare against the paths the code resolves to.
  path_ = std::filesystem::canonical(pattern).string();
}

TempDir::~TempDir() {
  std::error_code ignored;
  // Read-only payloads inside read-only folders would block removal.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      ::chmod(it->path().c_str(), 0755);
    }
  }
  ::chmod(path_.c_str(), 0755);
  std::filesystem::remove_all(path_, ignored);
}

void TempDir::write(const std::string& relative, const std::string& bytes, unsigned mode) const {
  std::string full = *this / relative;
  {
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    ASSERT_TRUE(out) << "cannot write " << full;
    out << bytes;
  }
  ::chmod(full.c_str(), mode);
}

std::string TempDir::read(const std::string& relative) const {
  return readFile(*this / relative);
}

bool TempDir::exists(const std::string& relative) const {
  struct stat st;
  return ::lstat((*this / relative).c_str(), &st) == 0;
}

void TempDir::makeFolder(const std::string& relative) const {
  std::filesystem::create_directories(*this / relative);
}

void TempDir::symlink(const std::string& target, const std::string& relative) const {
  ASSERT_EQ(::symlink(target.c_str(), (*this / relative).c_str()), 0) << relative;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << "cannot read " << path;
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

struct stat statOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

unsigned modeOf(const std::string& path) {
  return statOf(path).st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string& folder, const std::string& prefix) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& item : std::filesystem::directory_iterator(folder, ignored)) {
    if (std::string name = item.path().filename().string(); name.starts_with(prefix)) {
      names.push_back(std::move(name));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vorna::testing
