#include "bridge/WorkspaceBoundary.h"

#include <string_view>

namespace vorna::bridge {

WorkspaceBoundary::WorkspaceBoundary(std::string root, storage::FileSystem& fs)
    : root_(std::move(root)), fs_(&fs) {
  // "/w/site/" names the same folder as "/w/site"; answers are built by
  // appending "/" + rest to the root, which must not double the slash.
  while (root_.size() > 1 && root_.back() == '/') {
    root_.pop_back();
  }
  canonicalRootPath_ = recovery::canonicalPath(root_, fs).value_or(root_);
}

std::optional<std::string_view> WorkspaceBoundary::remainderOf(
    std::string_view canonicalPath) const {
  const std::string_view rootPath = canonicalRootPath_;
  // A root that could not be made absolute contains nothing; in particular an
  // empty one must not contain every path that begins with "/".
  if (!rootPath.starts_with('/') || !recovery::isSameOrInside(canonicalPath, rootPath)) {
    return std::nullopt;
  }
  if (canonicalPath.size() == rootPath.size()) {
    return std::string_view();
  }
  return canonicalPath.substr(rootPath.size() == 1 ? 1 : rootPath.size() + 1);
}

bool WorkspaceBoundary::isRoot(const std::string& path) const {
  std::optional<std::string> resolved = recovery::canonicalPath(path, *fs_);
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
  std::optional<std::string> canonical = recovery::canonicalPath(path, *fs_);
  if (!canonical) {
    return std::nullopt;
  }
  return rebase(*canonical);
}

std::optional<std::vector<std::string>> WorkspaceBoundary::relativeComponents(
    const std::string& path) const {
  std::optional<std::string> canonical = recovery::canonicalPath(path, *fs_);
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
