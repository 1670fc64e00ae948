#include "recovery/PathForms.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <vector>

namespace vorna::recovery {
namespace {

constexpr int kMaxLinkHops = 40;  // the kernel's own limit (ELOOP)

std::vector<std::string> componentsOf(std::string_view path) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) {
      slash = path.size();
    }
    if (slash > start) {
      parts.emplace_back(path.substr(start, slash - start));
    }
    start = slash + 1;
  }
  return parts;
}

std::string workingFolder() {
  std::string buffer(4096, '\0');
  while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
    if (errno != ERANGE) {
      return "/";
    }
    buffer.resize(buffer.size() * 2);
  }
  return std::string(buffer.c_str());
}

std::string joined(const std::vector<std::string>& parts) {
  if (parts.empty()) {
    return "/";
  }
  std::string path;
  for (const std::string& part : parts) {
    path += '/';
    path += part;
  }
  return path;
}

void applyComponent(std::vector<std::string>& stack, const std::string& part) {
  if (part == ".") {
    return;
  }
  if (part == "..") {
    if (!stack.empty()) {
      stack.pop_back();
    }
    return;
  }
  stack.push_back(part);
}

}  // namespace

std::string standardisedPath(std::string_view path) {
  std::string absolute =
      path.starts_with('/') ? std::string(path) : workingFolder() + "/" + std::string(path);
  std::vector<std::string> stack;
  for (const std::string& part : componentsOf(absolute)) {
    applyComponent(stack, part);
  }
  return joined(stack);
}

std::string resolvedPath(std::string_view path, storage::FileSystem& fs) {
  std::string start = standardisedPath(path);
  std::vector<std::string> parts = componentsOf(start);
  std::deque<std::string> pending(parts.begin(), parts.end());
  // `resolved` never holds a link, so ".." met later may drop its last part as text.
  std::vector<std::string> resolved;
  int hops = 0;
  while (!pending.empty()) {
    std::string part = std::move(pending.front());
    pending.pop_front();
    if (part == "." || part == "..") {
      applyComponent(resolved, part);
      continue;
    }
    resolved.push_back(part);
    std::string candidate = joined(resolved);
    struct stat st {};
    if (fs.lstat(candidate, &st) != 0) {
      // Nothing more exists below here; what remains is taken as written.
      for (const std::string& rest : pending) {
        applyComponent(resolved, rest);
      }
      return joined(resolved);
    }
    if (!S_ISLNK(st.st_mode)) {
      continue;
    }
    std::string target;
    if (fs.readlink(candidate, target) < 0 || ++hops > kMaxLinkHops) {
      return start;
    }
    resolved.pop_back();
    if (target.starts_with('/')) {
      resolved.clear();
    }
    std::vector<std::string> targetParts = componentsOf(target);
    pending.insert(pending.begin(), targetParts.begin(), targetParts.end());
  }
  return joined(resolved);
}

bool isSameOrInside(std::string_view path, std::string_view folder) {
  if (folder == "/") {
    return path.starts_with('/');
  }
  return path == folder ||
         (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace vorna::recovery
