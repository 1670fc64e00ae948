#include <gtest/gtest.h>
#include <unistd.h>

#include "recovery/PathForms.h"
#include "support/TempDir.h"

namespace vorna::recovery {
namespace {

TEST(PathFormsTest, StandardisingRemovesDotsAndSlashesAsText) {
  const std::pair<std::string, std::string> cases[] = {
      {"/a/./site/../site/x.html", "/a/site/x.html"},
      {"/a//b/", "/a/b"},
      {"/../..", "/"},
      {"/", "/"},
      {"/a/b/../../..", "/"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(standardisedPath(input), expected) << input;
  }
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(standardisedPath("x/../y"), std::string(cwd) + "/y");
}

TEST(PathFormsTest, ResolvingFollowsLinksAsFarAsThePathExists) {
  testing::TempDir dir;
  dir.makeFolder("real/sub");
  dir.symlink(dir / "real", "absolute");
  dir.symlink("real/sub", "relative");
  dir.symlink("..", "real/sub/up");
  dir.symlink("loop-b", "loop-a");
  dir.symlink("loop-a", "loop-b");
  auto& fs = storage::FileSystem::real();

  const std::pair<std::string, std::string> cases[] = {
      {dir / "absolute/sub", dir / "real/sub"},
      {dir / "relative", dir / "real/sub"},
      {dir / "relative/up/sub/missing/../more", dir / "real/sub/more"},
      {dir / "absolute/not-yet/child", dir / "real/not-yet/child"},
      {dir / "loop-a/x", dir / "loop-a/x"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(resolvedPath(input, fs), expected) << input;
  }
}

TEST(PathFormsTest, InsideMeansTheFolderOrBelowIt) {
  EXPECT_TRUE(isSameOrInside("/a/site", "/a/site"));
  EXPECT_TRUE(isSameOrInside("/a/site/.rec/x", "/a/site"));
  EXPECT_FALSE(isSameOrInside("/a/site-store/x", "/a/site"));
  EXPECT_FALSE(isSameOrInside("/a", "/a/site"));
  EXPECT_TRUE(isSameOrInside("/anything", "/"));
}

}  // namespace
}  // namespace vorna::recovery
