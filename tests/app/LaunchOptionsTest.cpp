#include <gtest/gtest.h>

#include <filesystem>

#include "app/AppDelegate.h"
#include "app/LaunchOptions.h"
#include "app/PageTarget.h"
#include "bridge/PathExtension.h"
#include "recovery/PathForms.h"
#include "support/TempDir.h"

namespace vorna::app {
namespace {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

class LaunchOptionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    temp.makeFolder("my site");
    temp.write("my site/a.HTML", "<p>a</p>");
    temp.write("my site/notes.txt", "notes");
  }
  vorna::testing::TempDir temp;
  fs::path site = temp / "my site";
};

TEST_F(LaunchOptionsTest, OpenTakesAFolderOrAPageInItsFolder) {
  LaunchOptions folder = LaunchOptions::scan({"--open", (site / "." / "").string()});
  EXPECT_EQ(folder.requestedFolder, site.string());
  EXPECT_EQ(folder.requestedPage, std::nullopt);
  LaunchOptions page = LaunchOptions::scan({"--open", (site / "a.HTML").string()});
  EXPECT_EQ(page.requestedFolder, site.string());
  EXPECT_EQ(page.requestedPage, "a.HTML");
  for (const char* other : {"notes.txt", "missing.html"}) {
    LaunchOptions refused = LaunchOptions::scan({"--open", (site / other).string()});
    EXPECT_EQ(refused.requestedFolder, std::nullopt) << other;
    EXPECT_EQ(refused.requestedPage, std::nullopt) << other;
  }
  // An open request from the desktop takes the first folder or page.
  EXPECT_EQ(
      openRequestTarget({(site / "notes.txt").string(), "/nowhere", (site / "a.HTML").string()}),
      (PageTarget{site.string(), "a.HTML"}));
  EXPECT_EQ(openRequestTarget({(site / "notes.txt").string()}), std::nullopt);
}

TEST_F(LaunchOptionsTest, FlagsTakeTheNextArgumentWhateverItLooksLike) {
  LaunchOptions last = LaunchOptions::scan({"x", "--open"});
  EXPECT_EQ(last.requestedFolder, std::nullopt);
  EXPECT_EQ(last.ignored, (Args{"x"}));

  LaunchOptions swallowed = LaunchOptions::scan({"--scenario", "--smoke", "x"});
  EXPECT_EQ(swallowed.e2eScenario, "--smoke");
  EXPECT_FALSE(swallowed.isSmoke);
  EXPECT_FALSE(swallowed.isE2E);
  EXPECT_EQ(swallowed.ignored, (Args{"x"}));

  LaunchOptions twice = LaunchOptions::scan({"--smoke", "/a/../b", "--smoke", "relative/./dir/"});
  EXPECT_TRUE(twice.isSmoke);
  EXPECT_EQ(twice.smokeFolder,
            recovery::standardisedPath(fs::current_path().string() + "/relative/dir"));

  // Help and version take no value.
  LaunchOptions both = LaunchOptions::scan({"--version", "x", "--help"});
  EXPECT_TRUE(both.showHelp);
  EXPECT_TRUE(both.showVersion);
  EXPECT_EQ(both.ignored, (Args{"x"}));
}

// A bare path is not opened (--open decides), and whatever was ignored is
// said on one line.
TEST_F(LaunchOptionsTest, UnknownArgumentsAreIgnoredWithOneLine) {
  LaunchOptions options =
      LaunchOptions::scan({site.string(), "--open", (site / "a.HTML").string(), "--frob", "a\nb"});
  EXPECT_EQ(options.requestedPage, "a.HTML");
  EXPECT_EQ(options.ignoredLine(), "Vorna: ignoring \"" + site.string() +
                                       "\" \"--frob\" \"a?b\" (not an option; open a folder or "
                                       "page with --open PATH)\n");
  EXPECT_EQ(LaunchOptions::scan({"--open", site.string()}).ignoredLine(), std::nullopt);
  // End to end needs both a folder and a scenario.
  EXPECT_FALSE(LaunchOptions::scan({"--e2e", site.string()}).isE2E);
  EXPECT_FALSE(
      LaunchOptions::scan({"--e2e", (site / "missing").string(), "--scenario", "s"}).isE2E);
  LaunchOptions run =
      LaunchOptions::scan({"--scenario", "save", "--e2e", (site / "a.HTML").string()});
  EXPECT_TRUE(run.isE2E);
  EXPECT_EQ(run.e2eFolder, site.string());
  EXPECT_EQ(run.e2ePage, "a.HTML");
  EXPECT_EQ(run.e2eScenario, "save");
}

TEST(FirstTargetTest, PendingThenRequestedThenRemembered) {
  PageTarget pending{"/p", "p.html"};
  PageTarget requested{"/r", "r.html"};
  std::optional<std::string> remembered = "/m";
  EXPECT_EQ(AppDelegate::firstTarget(pending, requested, remembered), pending);
  EXPECT_EQ(AppDelegate::firstTarget({}, requested, remembered), requested);
  EXPECT_EQ(AppDelegate::firstTarget({}, {}, remembered), (PageTarget{"/m", std::nullopt}));
  EXPECT_EQ(AppDelegate::firstTarget({}, {}, std::nullopt), PageTarget{});
}

}  // namespace
}  // namespace vorna::app
