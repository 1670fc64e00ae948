#include "bridge/WorkspaceBoundary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <forward_list>
#include <string_view>

namespace vorna::bridge {
namespace {

constexpr size_t kMaxLinks = 64;

// Errors of readlink that hold for everything below the queried path as well:
// the item is missing, a parent is not a folder, the name is too long, or a
// parent cannot be searched. Below such a path no link can be found, so the
// walk stops asking, which keeps an enormous path linear rather than one
// system call per component.
bool failsBelowToo(int error) {
  return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == EACCES;
}

}  // namespace

WorkspaceBoundary::WorkspaceBoundary(std::string root, storage::FileSystem& fs)
    : root_(std::move(root)), fs_(&fs) {
  // "/w/site/" names the same folder as "/w/site"; answers are built by
  // appending "/" + rest to the root, which must not double the slash.
  while (root_.size() > 1 && root_.back() == '/') {
    root_.pop_back();
  }
  canonicalRootPath_ = canonicalize(root_, fs).value_or(root_);
}

std::optional<std::string> WorkspaceBoundary::canonicalize(const std::string& path,
                                                           storage::FileSystem& fs) {
  // A NUL would end the path early for the kernel; such a path names nothing
  // and must never resolve to the shorter path before the NUL.
  if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  // The text still to walk: the path itself, then each link target in front of
  // what remains of the text that led to it. A link only ever adds one level,
  // so the stack never holds more than the path and kMaxLinks targets.
  std::array<std::string_view, kMaxLinks + 1> pending;
  size_t depth = 0;
  pending[depth++] = path;
  std::forward_list<std::string> targets;  // owns the text of the pending targets

  // "/a/b" without a trailing slash; the empty string stands for "/".
  std::string cursor;
  cursor.reserve(std::min<size_t>(path.size(), PATH_MAX));
  size_t links = 0;
  // While set, the cursor lies at or below a path of this length that readlink
  // reported missing (or unreachable), so nothing there needs asking.
  size_t missingFrom = std::string::npos;
  std::string target;

  while (depth > 0) {
    std::string_view& rest = pending[depth - 1];
    const size_t start = rest.find_first_not_of('/');
    if (start == std::string_view::npos) {
      --depth;
      continue;
    }
    rest.remove_prefix(start);
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(name.size());

    if (name == ".") {
      continue;
    }
    if (name == "..") {
      const size_t slash = cursor.rfind('/');
      cursor.resize(slash == std::string::npos ? 0 : slash);
      if (cursor.size() < missingFrom) {
        missingFrom = std::string::npos;
      }
      continue;
    }
    const size_t parentLength = cursor.size();
    cursor += '/';
    cursor += name;
    if (missingFrom != std::string::npos) {
      continue;
    }
    if (fs.readlink(cursor, target) < 0) {
      // Not a link (EINVAL), or nothing there: either way a plain name.
      if (failsBelowToo(errno)) {
        missingFrom = cursor.size();
      }
      continue;
    }
    if (++links > kMaxLinks) {
      return std::nullopt;
    }
    cursor.resize(target.starts_with('/') ? 0 : parentLength);
    targets.push_front(std::move(target));
    target.clear();
    pending[depth++] = targets.front();
  }
  // No system call can take a longer path, so it names nothing that could be
  // read or written; refusing it here keeps such paths out of every answer.
  if (cursor.size() >= PATH_MAX) {
    return std::nullopt;
  }
  if (cursor.empty()) {
    cursor.push_back('/');
  }
  return cursor;
}

std::optional<std::string_view> WorkspaceBoundary::remainderOf(
    std::string_view canonicalPath) const {
  const std::string_view rootPath = canonicalRootPath_;
  // A root that could not be made absolute contains nothing; in particular an
  // empty one must not contain every path that begins with "/".
  if (!rootPath.starts_with('/') || !canonicalPath.starts_with(rootPath)) {
    return std::nullopt;
  }
  if (canonicalPath.size() == rootPath.size()) {
    return std::string_view();
  }
  // The file-system root holds every absolute path; any other root only the
  // paths that continue it with a "/", so /w/site2 is not inside /w/site.
  if (rootPath.size() == 1) {
    return canonicalPath.substr(1);
  }
  if (canonicalPath[rootPath.size()] != '/') {
    return std::nullopt;
  }
  return canonicalPath.substr(rootPath.size() + 1);
}

bool WorkspaceBoundary::isRoot(const std::string& path) const {
  std::optional<std::string> resolved = canonicalize(path, *fs_);
  return (resolved ? *resolved : path) == canonicalRootPath_;
}

std::optional<std::string> WorkspaceBoundary::rebase(const std::string& canonicalPath) const {
  std::optional<std::string_view> rest = remainderOf(canonicalPath);
  if (!rest) {
    return std::nullopt;
  }
  if (rest->empty()) {
    return root_;
  }
  std::string rebased;
  rebased.reserve(root_.size() + 1 + rest->size());
  rebased = root_;
  if (rebased.back() != '/') {
    rebased += '/';
  }
  rebased += *rest;
  return rebased;
}

std::optional<std::string> WorkspaceBoundary::resolveInside(const std::string& path) const {
  std::optional<std::string> canonical = canonicalize(path, *fs_);
  if (!canonical) {
    return std::nullopt;
  }
  return rebase(*canonical);
}

std::optional<std::vector<std::string>> WorkspaceBoundary::relativeComponents(
    const std::string& path) const {
  std::optional<std::string> canonical = canonicalize(path, *fs_);
  if (!canonical) {
    return std::nullopt;
  }
  std::optional<std::string_view> rest = remainderOf(*canonical);
  if (!rest) {
    return std::nullopt;
  }
  std::vector<std::string> components;
  while (!rest->empty()) {
    const size_t slash = rest->find('/');
    const std::string_view component = rest->substr(0, slash);
    if (!component.empty()) {
      components.emplace_back(component);
    }
    rest->remove_prefix(slash == std::string_view::npos ? rest->size() : slash + 1);
  }
  return components;
}

}  // namespace vorna::bridge
