#include <gtest/gtest.h>

#include "bridge/WorkspaceBoundary.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

using testing::TempDir;
using Components = std::vector<std::string>;

class WorkspaceBoundaryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tmp.makeFolder("w/site/real");
    tmp.makeFolder("w/other");
    tmp.makeFolder("elsewhere");
  }

  TempDir tmp;
  const std::string site = tmp / "w/site";
};

TEST_F(WorkspaceBoundaryTest, InsideIsTheRootAndWhatContinuesItWithASlashOnceResolved) {
  tmp.symlink("real", "w/site/alias");
  tmp.symlink(tmp / "elsewhere", "w/site/docs");
  WorkspaceBoundary boundary(site);
  EXPECT_EQ(boundary.canonicalRootPath(), site);
  EXPECT_EQ(boundary.rebase(site), site);
  EXPECT_EQ(boundary.rebase(site + "/a/b.html"), site + "/a/b.html");
  EXPECT_EQ(boundary.rebase(site + "2/a"), std::nullopt);
  EXPECT_EQ(boundary.rebase(tmp / "w"), std::nullopt);
  EXPECT_EQ(boundary.resolveInside(site + "/../other/x"), std::nullopt);
  EXPECT_EQ(boundary.resolveInside(site + "/alias/x.html"), site + "/real/x.html");
  EXPECT_EQ(boundary.resolveInside(site + "/docs/x"), std::nullopt);
  EXPECT_EQ(boundary.resolveInside(site + "/docs"), std::nullopt);
  // What lies after the root, split.
  EXPECT_EQ(boundary.relativeComponents(site + "/a/b.html"), (Components{"a", "b.html"}));
  EXPECT_EQ(boundary.relativeComponents(site + "/alias//x.html"), (Components{"real", "x.html"}));
  EXPECT_EQ(boundary.relativeComponents(site), Components{});
  EXPECT_EQ(boundary.relativeComponents(site + "/"), Components{});
  EXPECT_EQ(boundary.relativeComponents(tmp / "w/other/a"), std::nullopt);
  EXPECT_EQ(boundary.relativeComponents("a/b"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, RootOpenedThroughALinkedParentAnswersUnderTheRootAsOpened) {
  tmp.makeFolder("real/ws");
  tmp.symlink(tmp / "real", "alias");
  WorkspaceBoundary boundary(tmp / "alias/ws/");
  EXPECT_EQ(boundary.root(), tmp / "alias/ws");
  EXPECT_EQ(boundary.canonicalRootPath(), tmp / "real/ws");
  EXPECT_EQ(boundary.resolveInside(tmp / "alias/ws/a"), tmp / "alias/ws/a");
  EXPECT_EQ(boundary.resolveInside(tmp / "real/ws/a"), tmp / "alias/ws/a");
  EXPECT_EQ(boundary.resolveInside(tmp / "real/ws"), tmp / "alias/ws");
  EXPECT_TRUE(boundary.isRoot(tmp / "real/ws/"));
  // The file system root contains every absolute path, an empty root none.
  WorkspaceBoundary whole("/");
  EXPECT_EQ(whole.root(), "/");
  EXPECT_EQ(whole.rebase("/"), "/");
  EXPECT_EQ(whole.rebase(site + "/a"), site + "/a");
  EXPECT_EQ(whole.relativeComponents("/x/y"), (Components{"x", "y"}));
  WorkspaceBoundary empty("");
  EXPECT_EQ(empty.rebase("/a"), std::nullopt);
  EXPECT_EQ(empty.relativeComponents("/a"), std::nullopt);
}

// The root keeps the canonical path computed at the start.
TEST_F(WorkspaceBoundaryTest, IsRootResolvesAndFallsBackToTheUnresolvedPath) {
  tmp.symlink(site, "link-to-site");
  WorkspaceBoundary boundary(site);
  EXPECT_TRUE(boundary.isRoot(tmp / "link-to-site"));
  EXPECT_TRUE(boundary.isRoot(site + "/real/.."));
  EXPECT_FALSE(boundary.isRoot(site + "/real"));
  tmp.makeFolder("later");
  WorkspaceBoundary moving(tmp / "moving");
  ASSERT_EQ(moving.canonicalRootPath(), tmp / "moving");
  tmp.symlink(tmp / "later", "moving");
  EXPECT_EQ(moving.canonicalRootPath(), tmp / "moving");
  EXPECT_EQ(moving.resolveInside(tmp / "moving/a"), std::nullopt);
  WorkspaceBoundary relative("site");
  EXPECT_EQ(relative.canonicalRootPath(), "site");
  EXPECT_TRUE(relative.isRoot("site"));
  EXPECT_EQ(relative.rebase("/site"), std::nullopt);
}

}  // namespace
}  // namespace vorna::bridge
