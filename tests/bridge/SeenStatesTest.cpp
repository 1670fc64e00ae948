#include <gtest/gtest.h>

#include <algorithm>

#include "bridge/SeenStates.h"

namespace vorna::bridge {
namespace {

TEST(SeenStatesTest, PathsBelowAFolderLeaveOutTheFolderAndItsNamesakeSiblings) {
  SeenStates states;
  for (const char* path : {"/w/docs", "/w/docs/a.html", "/w/docs/sub", "/w/docs/sub/b.html",
                           "/w/docs2/c.html", "/w/docs.html", "/w/top.html"}) {
    states.assign(path, StateToken{StateToken::Kind::item, 1, 0, 1});
  }
  auto paths = [](const std::vector<std::pair<std::string, StateToken>>& entries) {
    std::vector<std::string> found;
    for (const auto& [path, token] : entries) {
      found.push_back(path);
    }
    std::sort(found.begin(), found.end());
    return found;
  };
  EXPECT_EQ(paths(states.entriesBelow("/w/docs")),
            (std::vector<std::string>{"/w/docs/a.html", "/w/docs/sub", "/w/docs/sub/b.html"}));
  EXPECT_EQ(paths(states.entriesBelow("/w/nothing")), std::vector<std::string>{});
  EXPECT_EQ(paths(states.entriesIn("/w/docs")),
            (std::vector<std::string>{"/w/docs/a.html", "/w/docs/sub"}));
}

}  // namespace
}  // namespace vorna::bridge
