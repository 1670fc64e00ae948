#include "recovery/SwapFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "storage/PathNames.h"

namespace vorna::recovery {
namespace {

constexpr std::string_view kSwapPrefix = ".vn-swap-";
constexpr size_t kUuidLength = 36;

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// 8-4-4-4-12 hexadecimal digits, of either case.
bool isCanonicalUuid(std::string_view text) {
  if (text.size() != kUuidLength) {
    return false;
  }
  for (size_t i = 0; i < text.size(); ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !isHexDigit(text[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

void collectSwapFiles(const std::string& folder, std::vector<std::string>& found,
                      storage::FileSystem& fs) {
  std::vector<std::string> names;
  if (fs.listDirectory(folder, names) != 0) {
    return;
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    // Tools' own trees: never a page's folder, and often huge.
    if (name == ".git" || name == "node_modules") {
      continue;
    }
    std::string path = storage::joinPath(folder, name);
    struct stat st {};
    if (fs.lstat(path, &st) != 0) {
      continue;
    }
    if (S_ISDIR(st.st_mode)) {
      collectSwapFiles(path, found, fs);
    } else if (S_ISREG(st.st_mode) && name.starts_with(kSwapPrefix)) {
      found.push_back(std::move(path));
    }
  }
}

std::string pageForSwap(const std::string& swapPath) {
  std::string folder = storage::parentFolder(swapPath);
  std::string name = storage::lastComponent(swapPath);
  if (!name.starts_with(kSwapPrefix)) {
    return folder;
  }
  std::string_view rest = std::string_view(name).substr(kSwapPrefix.size());
  if (rest.size() < kUuidLength + 2 || !isCanonicalUuid(rest.substr(0, kUuidLength)) ||
      rest[kUuidLength] != '-') {
    return folder;
  }
  std::string_view page = rest.substr(kUuidLength + 1);
  if (page == "." || page == ".." || page.find('/') != std::string_view::npos) {
    return folder;
  }
  return storage::joinPath(folder, page);
}

}  // namespace vorna::recovery
