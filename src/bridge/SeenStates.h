#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bridge/StateToken.h"

namespace vorna::bridge {

// The state token of every path as it was last seen, by canonical path.
//
// Kept per folder: a workspace of a hundred thousand pages has a few thousand
// folder paths, and its short page names need no allocation of their own, so a
// snapshot costs a fraction of the memory and time of one map keyed by whole
// paths. Consecutive assignments within one folder, as a tree walk makes them,
// look the folder up once.
//
// Not thread-safe: the owner guards it.
class SeenStates {
 public:
  SeenStates() = default;
  SeenStates(SeenStates&& other) noexcept;
  SeenStates& operator=(SeenStates&& other) noexcept;
  SeenStates(const SeenStates&) = delete;
  SeenStates& operator=(const SeenStates&) = delete;

  // The token recorded for `path`; nothing when it has none.
  std::optional<StateToken> find(const std::string& path) const;
  // Records `token` for `path` and returns the token it replaced, if any.
  std::optional<StateToken> exchange(const std::string& path, const StateToken& token);
  void assign(const std::string& path, const StateToken& token);

  // Every recorded path strictly below `folder`, with its token.
  std::vector<std::pair<std::string, StateToken>> entriesBelow(const std::string& folder) const;
  // Every recorded path directly in `folder`, with its token.
  std::vector<std::pair<std::string, StateToken>> entriesIn(const std::string& folder) const;
  // Calls `visit` for every recorded path, in no particular order.
  void forEach(const std::function<void(const std::string& path, const StateToken&)>& visit) const;

  size_t size() const;
  void clear();

 private:
  using Names = std::unordered_map<std::string, StateToken>;

  Names& namesOf(std::string_view folder);

  std::unordered_map<std::string, Names> folders_;
  // The folder of the latest assignment; nodes of folders_ never move, so the
  // pointer stays good until the entry is erased.
  std::string lastFolder_;
  Names* lastNames_ = nullptr;
};

}  // namespace vorna::bridge
