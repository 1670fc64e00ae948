#pragma once

// Helpers shared by the fuzzers that need real folders: a private temporary
// tree made once per process, removed at exit, and small file utilities that
// abort on failure (a fuzzer whose own set-up fails must not report findings).

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

namespace vorna::fuzz {

inline void fail(const std::string& why) {
  std::fprintf(stderr, "fuzzer set-up failed: %s\n", why.c_str());
  std::abort();
}

inline std::string makeScratchFolder(const char* name) {
  std::string pattern = (std::filesystem::temp_directory_path() / name).string() + "-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    fail("mkdtemp " + pattern);
  }
  // Canonical, so that answers can be compared with it byte for byte.
  char resolved[PATH_MAX];
  if (realpath(pattern.c_str(), resolved) == nullptr) {
    fail("realpath " + pattern);
  }
  return resolved;
}

inline void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) {
    fail("write " + path);
  }
}

inline void makeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) {
    fail("mkdir " + path + ": " + error.message());
  }
}

inline void makeLink(const std::string& target, const std::string& path) {
  if (symlink(target.c_str(), path.c_str()) != 0) {
    fail("symlink " + path);
  }
}

// Removes a tree, making read-only folders writable first (the recovery store
// keeps its payloads read-only).
inline void removeTree(const std::string& path) {
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(
           path, std::filesystem::directory_options::skip_permission_denied, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_directory(error) && !it->is_symlink(error)) {
      chmod(it->path().c_str(), 0700);
    }
  }
  chmod(path.c_str(), 0700);
  std::filesystem::remove_all(path, error);
}

// Every entry below `path` (links not followed) with its kind, mode, size and
// content for files or target for links: two equal snapshots mean nothing
// below `path` changed.
inline std::map<std::string, std::string> snapshot(const std::string& path) {
  std::map<std::string, std::string> entries;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(path, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    struct stat st {};
    if (lstat(it->path().c_str(), &st) != 0) {
      continue;
    }
    std::string facts = std::to_string(st.st_mode) + " " + std::to_string(st.st_size) + " ";
    if (S_ISREG(st.st_mode)) {
      std::ifstream in(it->path(), std::ios::binary);
      facts.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } else if (S_ISLNK(st.st_mode)) {
      facts += std::filesystem::read_symlink(it->path(), error).string();
    }
    entries[it->path().string()] = facts;
  }
  return entries;
}

}  // namespace vorna::fuzz
