#include <gtest/gtest.h>

#include <algorithm>

#include "bridge/SeenStates.h"

namespace vorna::bridge {
namespace {

StateToken item(int64_t seconds, int64_t size) {
  return StateToken{StateToken::Kind::item, seconds, 0, size};
}

std::vector<std::string> sorted(std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  return paths;
}

TEST(SeenStatesTest, PathsBelowAFolderLeaveOutTheFolderAndItsNamesakeSiblings) {
  SeenStates states;
  for (const char* path : {"/w/docs", "/w/docs/a.html", "/w/docs/sub", "/w/docs/sub/b.html",
                           "/w/docs2/c.html", "/w/docs.html", "/w/top.html"}) {
    states.assign(path, item(1, 1));
  }
  auto paths = [](const std::vector<std::pair<std::string, StateToken>>& entries) {
    std::vector<std::string> found;
    for (const auto& [path, token] : entries) {
      found.push_back(path);
    }
    return sorted(found);
  };
  EXPECT_EQ(paths(states.entriesBelow("/w/docs")),
            (std::vector<std::string>{"/w/docs/a.html", "/w/docs/sub", "/w/docs/sub/b.html"}));
  EXPECT_EQ(paths(states.entriesBelow("/w/nothing")), std::vector<std::string>{});
  EXPECT_EQ(paths(states.entriesIn("/w/docs")),
            (std::vector<std::string>{"/w/docs/a.html", "/w/docs/sub"}));
}

}  // namespace
}  // namespace vorna::bridge
