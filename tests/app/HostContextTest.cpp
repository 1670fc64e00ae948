#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "FakeBridge.h"
#include "app/HostContext.h"
#include "app/UserDefaults.h"

namespace vorna::app {
namespace {

namespace fs = std::filesystem;

class HostContextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = fs::temp_directory_path() / ("vorna-host-" + std::to_string(::getpid()));
    fs::create_directories(root);
  }
  void TearDown() override { fs::remove_all(root); }

  std::string editorAt(const fs::path& folder) {
    fs::create_directories(folder);
    std::ofstream(folder / "index.html") << "<p>editor</p>";
    return folder.string();
  }
  fs::path root;
};

TEST_F(HostContextTest, TheEnvironmentThenTheInstallThenTheClimb) {
  std::string fromEnvironment = editorAt(root / "env");
  std::string installed = editorAt(root / "share" / "_app");
  std::string beside = editorAt(root / "_app");
  std::string program = (root / "build" / "src" / "app" / "vorna").string();
  fs::create_directories(root / "build" / "src" / "app");

  EXPECT_EQ(HostContext::locateAppDirectory(fromEnvironment + "/", installed, program),
            fromEnvironment);
  EXPECT_EQ(HostContext::locateAppDirectory((root / "empty").string(), installed, program),
            installed);
  EXPECT_EQ(HostContext::locateAppDirectory("", (root / "none").string(), program), beside);
  fs::remove_all(root / "_app");
  EXPECT_EQ(HostContext::locateAppDirectory("", "", program), std::nullopt);
  fs::create_directories(root / "_app");  // a folder without index.html does not count
  EXPECT_EQ(HostContext::locateAppDirectory("", "", program), std::nullopt);
}

TEST_F(HostContextTest, TheClimbTriesTwelveFoldersAndFollowsTheProgramsLink) {
  fs::path deep = root;
  for (int level = 0; level < 12; ++level) {
    deep /= "d";
  }
  fs::create_directories(deep);
  std::string program = (deep / "vorna").string();
  editorAt(root / "d" / "_app");  // the 12th folder tried: found
  EXPECT_EQ(HostContext::locateAppDirectory("", "", program), (root / "d" / "_app").string());
  fs::remove_all(root / "d" / "_app");
  editorAt(root / "_app");  // the 13th: never tried
  EXPECT_EQ(HostContext::locateAppDirectory("", "", program), std::nullopt);

  fs::create_symlink(program, root / "link-to-vorna");
  std::ofstream(program) << "";
  EXPECT_EQ(HostContext::locateAppDirectory("", "", (root / "link-to-vorna").string()),
            std::nullopt);
  editorAt(deep / "_app");
  EXPECT_EQ(HostContext::locateAppDirectory("", "", (root / "link-to-vorna").string()),
            (deep / "_app").string());
}

TEST_F(HostContextTest, TheBridgeIsSharedAndReplaceable) {
  HostContext host(std::nullopt);
  EXPECT_EQ(host.bridge(), nullptr);
  auto bridge = std::make_shared<app::testing::FakeBridge>();
  host.setBridge(bridge);
  EXPECT_EQ(host.bridge(), bridge);
  host.setBridge(nullptr);
  EXPECT_EQ(host.bridge(), nullptr);
  EXPECT_EQ(bridge.use_count(), 1);
}

TEST_F(HostContextTest, UserDefaultsKeepStringsAndTheWindowFrameInOneKeyFile) {
  std::string path = (root / "config" / "vorna" / "vorna.conf").string();
  UserDefaults defaults(path);
  EXPECT_EQ(defaults.string(UserDefaults::kLastFolderKey), std::nullopt);
  EXPECT_EQ(defaults.windowFrame(UserDefaults::kWindowAutosaveName), std::nullopt);
  ASSERT_TRUE(defaults.setString(UserDefaults::kLastFolderKey, "/home/ann/My Site"));
  ASSERT_TRUE(defaults.setWindowFrame(UserDefaults::kWindowAutosaveName, {900, 640, true}));
  UserDefaults again(path);
  EXPECT_EQ(again.string(UserDefaults::kLastFolderKey), "/home/ann/My Site");
  EXPECT_EQ(again.windowFrame(UserDefaults::kWindowAutosaveName), (WindowFrame{900, 640, true}));

  std::ofstream(path) << "[VornaMainWindow]\nwidth=0\nheight=700\n";
  EXPECT_EQ(again.windowFrame(UserDefaults::kWindowAutosaveName), std::nullopt);
  EXPECT_FALSE(UserDefaults("/proc/vorna/vorna.conf").setString("k", "v"));
}

TEST_F(HostContextTest, TheDefaultsFileFollowsXdgConfigHome) {
  const char* saved = std::getenv("XDG_CONFIG_HOME");
  std::string previous = saved == nullptr ? "" : saved;
  setenv("XDG_CONFIG_HOME", "/cfg", 1);
  EXPECT_EQ(UserDefaults::standardPath(), "/cfg/vorna/vorna.conf");
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(UserDefaults::standardPath(),
            std::string(g_get_home_dir()) + "/.config/vorna/vorna.conf");
  if (saved == nullptr) {
    unsetenv("XDG_CONFIG_HOME");
  } else {
    setenv("XDG_CONFIG_HOME", previous.c_str(), 1);
  }
}

}  // namespace
}  // namespace vorna::app
