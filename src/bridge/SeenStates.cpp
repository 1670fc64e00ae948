#include "bridge/SeenStates.h"

#include <utility>

namespace vorna::bridge {

namespace {

// A path splits at its last "/" into its folder and its name.
std::pair<std::string_view, std::string_view> split(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return {std::string_view(), path};
  }
  return {std::string_view(path).substr(0, slash), std::string_view(path).substr(slash + 1)};
}

bool isAtOrBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

SeenStates::SeenStates(SeenStates&& other) noexcept : folders_(std::move(other.folders_)) {
  other.clear();
}

SeenStates& SeenStates::operator=(SeenStates&& other) noexcept {
  if (this != &other) {
    folders_ = std::move(other.folders_);
    lastFolder_.clear();
    lastNames_ = nullptr;
    other.clear();
  }
  return *this;
}

std::optional<StateToken> SeenStates::find(const std::string& path) const {
  auto [folder, name] = split(path);
  auto names = folders_.find(std::string(folder));
  if (names == folders_.end()) {
    return std::nullopt;
  }
  auto found = names->second.find(std::string(name));
  if (found == names->second.end()) {
    return std::nullopt;
  }
  return found->second;
}

SeenStates::Names& SeenStates::namesOf(std::string_view folder) {
  if (lastNames_ == nullptr || folder != lastFolder_) {
    lastFolder_.assign(folder);
    lastNames_ = &folders_[lastFolder_];
  }
  return *lastNames_;
}

std::optional<StateToken> SeenStates::exchange(const std::string& path, const StateToken& token) {
  auto [folder, name] = split(path);
  Names& names = namesOf(folder);
  auto [slot, added] = names.try_emplace(std::string(name), token);
  if (added) {
    return std::nullopt;
  }
  return std::exchange(slot->second, token);
}

void SeenStates::assign(const std::string& path, const StateToken& token) {
  auto [folder, name] = split(path);
  namesOf(folder).insert_or_assign(std::string(name), token);
}

std::vector<std::pair<std::string, StateToken>> SeenStates::entriesBelow(
    const std::string& folder) const {
  std::vector<std::pair<std::string, StateToken>> entries;
  for (const auto& [parent, names] : folders_) {
    if (isAtOrBelow(parent, folder)) {
      for (const auto& [name, token] : names) {
        entries.emplace_back(parent + "/" + name, token);
      }
    }
  }
  return entries;
}

std::vector<std::pair<std::string, StateToken>> SeenStates::entriesIn(
    const std::string& folder) const {
  std::vector<std::pair<std::string, StateToken>> entries;
  // Items of "/" are filed under the empty folder name, as split leaves it.
  const std::string key = folder == "/" ? std::string() : folder;
  auto names = folders_.find(key);
  if (names != folders_.end()) {
    for (const auto& [name, token] : names->second) {
      entries.emplace_back(key + "/" + name, token);
    }
  }
  return entries;
}

void SeenStates::forEach(
    const std::function<void(const std::string& path, const StateToken&)>& visit) const {
  std::string path;
  for (const auto& [parent, names] : folders_) {
    for (const auto& [name, token] : names) {
      path.assign(parent).append("/").append(name);
      visit(path, token);
    }
  }
}

size_t SeenStates::size() const {
  size_t count = 0;
  for (const auto& [parent, names] : folders_) {
    count += names.size();
  }
  return count;
}

void SeenStates::clear() {
  folders_.clear();
  lastFolder_.clear();
  lastNames_ = nullptr;
}

}  // namespace vorna::bridge
