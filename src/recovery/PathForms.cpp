#include "recovery/PathForms.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <forward_list>

namespace vorna::recovery {
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

// Walks an absolute path component by component, folding "." and ".." and
// empty components; with `fs`, every link met is replaced by its target.
// Nothing past kMaxLinks links.
std::optional<std::string> walk(std::string_view path, storage::FileSystem* fs) {
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
  size_t missingFrom = fs == nullptr ? 0 : std::string::npos;
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
    if (fs->readlink(cursor, target) < 0) {
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
  if (cursor.empty()) {
    cursor.push_back('/');
  }
  return cursor;
}

}  // namespace

std::string standardisedPath(std::string_view path) {
  if (path.starts_with('/')) {
    return *walk(path, nullptr);
  }
  return *walk(workingFolder() + "/" + std::string(path), nullptr);
}

std::optional<std::string> canonicalPath(std::string_view path, storage::FileSystem& fs) {
  // A NUL would end the path early for the kernel; such a path names nothing
  // and must never resolve to the shorter path before the NUL.
  if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  std::optional<std::string> resolved = walk(path, &fs);
  // No system call can take a longer path, so it names nothing that could be
  // read or written; refusing it here keeps such paths out of every answer.
  if (resolved && resolved->size() >= PATH_MAX) {
    return std::nullopt;
  }
  return resolved;
}

std::string resolvedPath(std::string_view path, storage::FileSystem& fs) {
  std::string standard = standardisedPath(path);
  return canonicalPath(standard, fs).value_or(standard);
}

bool isSameOrInside(std::string_view path, std::string_view folder) {
  if (folder == "/") {
    return path.starts_with('/');
  }
  return path == folder ||
         (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace vorna::recovery
