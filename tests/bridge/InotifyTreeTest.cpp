#include <gtest/gtest.h>

#include <algorithm>

#include "bridge/InotifyTree.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

// A followed link would spend the watch budget outside the tree, or loop.
// What records name, retiring and rewatching: WorkspaceWatcherTest.
TEST(InotifyTreeTest, WatchesEveryVisibleFolderAndNeverFollowsLinks) {
  testing::TempDir temp;
  temp.makeFolder("a/b");
  temp.makeFolder(".hidden/c");
  temp.write("a/f.html", "f");
  temp.write(".dot.html", "d");
  temp.symlink(temp / "a", "link");
  InotifyTree tree;
  ASSERT_TRUE(tree.valid());
  std::vector<std::string> visited;
  EXPECT_EQ(tree.watchTree(temp.path(),
                           [&](const std::string& path, const struct stat&) {
                             visited.push_back(path.substr(temp.path().size() + 1));
                           }),
            std::nullopt);
  std::sort(visited.begin(), visited.end());
  EXPECT_EQ(visited, (std::vector<std::string>{"a", "a/b", "a/f.html", "link"}));
  EXPECT_EQ(tree.watchCount(), 3u);  // the root, a and a/b
}

}  // namespace
}  // namespace vorna::bridge
