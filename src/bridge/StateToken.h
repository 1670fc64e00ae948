#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace vorna::bridge {

// What an item looked like, from its attributes alone (never its content): gone,
// a folder, or anything else with its modification time and size. Tokens are
// only ever compared within one process, so equal attributes give equal tokens
// and nothing else is promised.
struct StateToken {
  enum class Kind : uint8_t { gone, folder, item };

  Kind kind = Kind::gone;
  int64_t seconds = 0;
  int64_t nanoseconds = 0;
  int64_t size = 0;

  static StateToken of(const struct stat& info) {
    if (S_ISDIR(info.st_mode)) {
      return StateToken{Kind::folder};
    }
    return StateToken{Kind::item, info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_size};
  }

  bool operator==(const StateToken&) const = default;
};

}  // namespace vorna::bridge
