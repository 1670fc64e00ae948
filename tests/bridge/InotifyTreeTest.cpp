#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>

#include "bridge/InotifyTree.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

class InotifyTreeTest : public ::testing::Test {
 protected:
  InotifyTreeTest() {
    temp.makeFolder("a/b");
    temp.makeFolder(".hidden/c");
    temp.write("a/f.html", "f");
    temp.write(".hidden/c/g.html", "g");
    temp.write(".dot.html", "d");
    temp.write("top.html", "t");
    temp.symlink(temp / "a", "link");
  }

  std::vector<std::string> watch(const std::string& folder) {
    std::vector<std::string> visited;
    auto limitedAt = tree.watchTree(folder, [&](const std::string& path, const struct stat&) {
      visited.push_back(path.substr(temp.path().size() + 1));
    });
    EXPECT_EQ(limitedAt, std::nullopt);
    std::sort(visited.begin(), visited.end());
    return visited;
  }

  testing::TempDir temp;
  InotifyTree tree;
};

TEST_F(InotifyTreeTest, WatchesEveryVisibleFolderAndNeverFollowsLinks) {
  ASSERT_TRUE(tree.valid());
  EXPECT_EQ(watch(temp.path()),
            (std::vector<std::string>{"a", "a/b", "a/f.html", "link", "top.html"}));
  EXPECT_EQ(tree.watchCount(), 3u);  // the root, a and a/b
  // Records name the item within the watched folder.
  temp.write("a/new.html", "n");
  auto records = tree.readAvailable();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(tree.folderOf(records.front().wd), temp / "a");
  EXPECT_EQ(records.front().name, "new.html");
  EXPECT_TRUE(records.front().mask & IN_CREATE);
}

TEST_F(InotifyTreeTest, RetiringAFolderDropsItsWholeSubtreeAndRewatchRestoresIt) {
  watch(temp.path());
  tree.retireBelow(temp / "a");
  EXPECT_EQ(tree.watchCount(), 1u);

  auto records = tree.readAvailable();  // the kernel confirms each removal
  EXPECT_EQ(std::count_if(records.begin(), records.end(),
                          [](const auto& record) { return record.mask & IN_IGNORED; }),
            2);
  for (const auto& record : records) {
    EXPECT_TRUE(tree.isRetired(record.wd));
    EXPECT_EQ(tree.folderOf(record.wd), std::nullopt);
    tree.forget(record.wd);
    EXPECT_FALSE(tree.isRetired(record.wd));
  }

  tree.rewatch(temp.path(), [](const std::string&, const struct stat&) {});
  EXPECT_EQ(tree.watchCount(), 3u);
}

}  // namespace
}  // namespace vorna::bridge
