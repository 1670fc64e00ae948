#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "bridge/WorkspaceBoundary.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FsCall;
using testing::TempDir;
using Components = std::vector<std::string>;

class WorkspaceBoundaryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tmp.makeFolder("w/site/real");
    tmp.makeFolder("w/other");
    tmp.makeFolder("elsewhere");
  }

  std::optional<std::string> canonical(const std::string& path) const {
    return WorkspaceBoundary::canonicalize(path);
  }

  TempDir tmp;
  const std::string site = tmp / "w/site";
};

TEST_F(WorkspaceBoundaryTest, FoldsDotsAndEmptyComponentsLexically) {
  const std::string t = tmp.path();
  EXPECT_EQ(canonical(site + "/a/../b.html"), site + "/b.html");
  EXPECT_EQ(canonical(site + "//real/./x.html/"), site + "/real/x.html");
  EXPECT_EQ(canonical(site + "/../other/x"), t + "/w/other/x");
  // ".." at "/" stays at "/".
  EXPECT_EQ(canonical("/../.." + site + "/a"), site + "/a");
  EXPECT_EQ(canonical("/"), "/");
  EXPECT_EQ(canonical("/.."), "/");
  EXPECT_EQ(canonical("//"), "/");
}

TEST_F(WorkspaceBoundaryTest, MissingComponentsStayPlainNamesAndDotDotLeavesThem) {
  tmp.symlink("real", "w/site/alias");
  EXPECT_EQ(canonical(site + "/new/deeper/page.html"), site + "/new/deeper/page.html");
  // Back above the missing folder, links are followed again.
  EXPECT_EQ(canonical(site + "/new/deeper/../../alias/x.html"), site + "/real/x.html");
}

TEST_F(WorkspaceBoundaryTest, RefusesRelativePathsNulBytesAndOverlongResults) {
  EXPECT_EQ(canonical(""), std::nullopt);
  EXPECT_EQ(canonical("a.html"), std::nullopt);
  EXPECT_EQ(canonical("./w"), std::nullopt);
  EXPECT_EQ(canonical(site + std::string("/a.html\0/../../x", 17)), std::nullopt);
  EXPECT_EQ(canonical(site + "/" + std::string(4096, 'a')), std::nullopt);
  // Only the result counts: a long detour that comes back is fine.
  std::string detour = site;
  for (int i = 0; i < 2000; ++i) {
    detour += "/real/..";
  }
  EXPECT_EQ(canonical(detour + "/a"), site + "/a");
}

TEST_F(WorkspaceBoundaryTest, FollowsAbsoluteAndRelativeLinks) {
  const std::string t = tmp.path();
  tmp.symlink("real", "w/site/alias");
  tmp.symlink(t + "/elsewhere", "w/site/docs");
  tmp.symlink("../other", "w/site/up");
  tmp.symlink(site + "/real", "w/site/absolute");
  tmp.symlink("alias/../up/", "w/site/chained");
  EXPECT_EQ(canonical(site + "/alias/x.html"), site + "/real/x.html");
  EXPECT_EQ(canonical(site + "/docs/x"), t + "/elsewhere/x");
  EXPECT_EQ(canonical(site + "/up/x"), t + "/w/other/x");
  EXPECT_EQ(canonical(site + "/absolute/x"), site + "/real/x");
  // ".." inside a target applies to where the earlier part led, not to its text.
  EXPECT_EQ(canonical(site + "/chained/x"), t + "/w/other/x");
  // A dangling link still resolves to its target.
  tmp.symlink("missing/page.html", "w/site/dangling");
  EXPECT_EQ(canonical(site + "/dangling"), site + "/missing/page.html");
}

TEST_F(WorkspaceBoundaryTest, FollowsSixtyFourLinksButNotSixtyFive) {
  tmp.makeFolder("chain/end");
  // l0 -> l1 -> ... -> l64 -> end: from l0 that is 65 links, from l1 64.
  for (int i = 0; i <= 64; ++i) {
    tmp.symlink(i == 64 ? "end" : "l" + std::to_string(i + 1), "chain/l" + std::to_string(i));
  }
  EXPECT_EQ(canonical(tmp / "chain/l1/x"), tmp / "chain/end/x");
  EXPECT_EQ(canonical(tmp / "chain/l0/x"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, LinkLoopsFail) {
  tmp.symlink("b", "w/site/a");
  tmp.symlink("a", "w/site/b");
  tmp.symlink("self", "w/site/self");
  tmp.symlink("./parent/x", "w/site/parent");
  for (const char* name : {"a", "b", "self", "parent/y"}) {
    EXPECT_EQ(canonical(site + "/" + name), std::nullopt) << name;
  }
}

TEST_F(WorkspaceBoundaryTest, StopsAskingBelowAMissingFolder) {
  FaultInjectingFileSystem fs;
  std::string deep = site + "/missing";
  for (int i = 0; i < 1000; ++i) {
    deep += "/d";
  }
  ASSERT_TRUE(WorkspaceBoundary::canonicalize(deep, fs).has_value());
  // One question per component of the site path and one for "missing".
  size_t siteComponents = std::count(site.begin(), site.end(), '/');
  EXPECT_EQ(fs.count(FsCall::readlink), siteComponents + 1);
}

TEST_F(WorkspaceBoundaryTest, OtherReadlinkFailuresCountAsPlainNames) {
  tmp.symlink("real", "w/site/alias");
  FaultInjectingFileSystem fs;
  fs.failWhere(FsCall::readlink, "/w/site/alias", EIO);
  EXPECT_EQ(WorkspaceBoundary::canonicalize(site + "/alias/x", fs), site + "/alias/x");
}

TEST_F(WorkspaceBoundaryTest, RebaseAcceptsTheRootAndWhatContinuesItWithASlash) {
  WorkspaceBoundary boundary(site);
  EXPECT_EQ(boundary.canonicalRootPath(), site);
  EXPECT_EQ(boundary.rebase(site), site);
  EXPECT_EQ(boundary.rebase(site + "/a/b.html"), site + "/a/b.html");
  EXPECT_EQ(boundary.rebase(site + "2/a"), std::nullopt);
  EXPECT_EQ(boundary.rebase(tmp / "w"), std::nullopt);
  EXPECT_EQ(boundary.resolveInside(site + "/../other/x"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, LinksInsideAreAnsweredUnderTheirTargetsAndLinksOutAreOutside) {
  tmp.symlink("real", "w/site/alias");
  tmp.symlink(tmp / "elsewhere", "w/site/docs");
  WorkspaceBoundary boundary(site);
  EXPECT_EQ(boundary.resolveInside(site + "/alias/x.html"), site + "/real/x.html");
  EXPECT_EQ(boundary.resolveInside(site + "/docs/x"), std::nullopt);
  EXPECT_EQ(boundary.resolveInside(site + "/docs"), std::nullopt);
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
}

TEST_F(WorkspaceBoundaryTest, RootKeepsTheCanonicalPathComputedAtStart) {
  tmp.makeFolder("later");
  WorkspaceBoundary boundary(tmp / "moving");
  ASSERT_EQ(boundary.canonicalRootPath(), tmp / "moving");
  tmp.symlink(tmp / "later", "moving");
  EXPECT_EQ(boundary.canonicalRootPath(), tmp / "moving");
  EXPECT_EQ(boundary.resolveInside(tmp / "moving/a"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, IsRootResolvesAndFallsBackToTheUnresolvedPath) {
  tmp.symlink(site, "link-to-site");
  WorkspaceBoundary boundary(site);
  EXPECT_TRUE(boundary.isRoot(tmp / "link-to-site"));
  EXPECT_TRUE(boundary.isRoot(site + "/real/.."));
  EXPECT_FALSE(boundary.isRoot(site + "/real"));
  WorkspaceBoundary relative("site");
  EXPECT_EQ(relative.canonicalRootPath(), "site");
  EXPECT_TRUE(relative.isRoot("site"));
  EXPECT_EQ(relative.rebase("/site"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, RelativeComponentsSplitWhatLiesAfterTheRoot) {
  tmp.symlink("real", "w/site/alias");
  WorkspaceBoundary boundary(site);
  EXPECT_EQ(boundary.relativeComponents(site + "/a/b.html"), (Components{"a", "b.html"}));
  EXPECT_EQ(boundary.relativeComponents(site + "/alias//x.html"), (Components{"real", "x.html"}));
  EXPECT_EQ(boundary.relativeComponents(site), Components{});
  EXPECT_EQ(boundary.relativeComponents(site + "/"), Components{});
  EXPECT_EQ(boundary.relativeComponents(tmp / "w/other/a"), std::nullopt);
  EXPECT_EQ(boundary.relativeComponents("a/b"), std::nullopt);
}

TEST_F(WorkspaceBoundaryTest, FileSystemRootContainsEveryAbsolutePath) {
  WorkspaceBoundary boundary("/");
  EXPECT_EQ(boundary.root(), "/");
  EXPECT_EQ(boundary.rebase("/"), "/");
  EXPECT_EQ(boundary.rebase(site + "/a"), site + "/a");
  EXPECT_EQ(boundary.relativeComponents("/x/y"), (Components{"x", "y"}));
}

TEST_F(WorkspaceBoundaryTest, EmptyRootContainsNothing) {
  WorkspaceBoundary boundary("");
  EXPECT_EQ(boundary.rebase("/a"), std::nullopt);
  EXPECT_EQ(boundary.relativeComponents("/a"), std::nullopt);
}

}  // namespace
}  // namespace vorna::bridge
