#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "app/HostContext.h"
#include "app/UserDefaults.h"
#include "contracts/BridgeRequest.h"
#include "support/FakeBridge.h"
#include "support/TempDir.h"

namespace vorna::app {
namespace {

namespace fs = std::filesystem;

class HostContextTest : public ::testing::Test {
 protected:
  vorna::testing::TempDir temp;
  fs::path root = temp.path();
};

TEST_F(HostContextTest, TheEditorComesFromTheEnvironmentThenTheBuildTreeThenThePrefix) {
  fs::path base = fs::canonical(root);
  HostContext::EditorLayout layout{
      .buildDirectory = (base / "src/build").string(),
      .buildEditors = {(base / "src/build/_app").string(), (base / "src/_app").string()},
      .installedRelative = "../share/vorna/_app"};
  const std::string built = "src/build/bin/vorna";
  const std::string installed = "usr/bin/vorna";
  fs::create_directories(base / "src/build/bin");
  fs::create_directories(base / "usr/bin");
  std::ofstream(base / built) << "";
  std::ofstream(base / installed) << "";
  fs::create_symlink(base / built, base / "vorna-link");

  struct Row {
    std::vector<std::string> editors;  // folders holding an index.html
    std::string environment;
    std::string program;
    std::optional<HostContext::LocatedEditor> expected;  // folder relative to base
  };
  using Found = HostContext::LocatedEditor;
  const std::vector<Row> rows = {
      {{"env", "src/build/_app"}, "env/", built, Found{"env", "VORNA_APP_DIR"}},
      {{"src/build/_app", "src/_app"}, "empty", built, Found{"src/build/_app", "the build tree"}},
      // A copy installed into the build folder never shadows the tree's editor.
      {{"src/_app", "src/build/share/vorna/_app"}, "", built, Found{"src/_app", "the build tree"}},
      {{"src/_app"}, "", "vorna-link", Found{"src/_app", "the build tree"}},
      {{"usr/bin/_app", "usr/share/vorna/_app"},
       "",
       installed,
       Found{"usr/bin/_app", "beside the program"}},
      // An installed program serves its own prefix, even beside a build tree.
      {{"src/build/_app", "usr/share/vorna/_app"},
       "",
       installed,
       Found{"usr/share/vorna/_app", "the install prefix"}},
      // Nor does it climb to an `_app` that merely lies above it.
      {{"_app", "usr/_app", "usr/share/_app"}, "", installed, std::nullopt},
      {{}, "", built, std::nullopt},
  };
  for (const Row& row : rows) {
    for (const char* folder :
         {"env", "src/build/_app", "src/_app", "src/build/share/vorna/_app", "usr/bin/_app",
          "usr/share/vorna/_app", "_app", "usr/_app", "usr/share/_app"}) {
      fs::remove_all(base / folder);
      fs::create_directories(base / folder);  // a folder without index.html does not count
    }
    for (const std::string& editor : row.editors) {
      std::ofstream(base / editor / "index.html") << "<p>editor</p>";
    }
    std::optional<Found> expected = row.expected;
    if (expected) {
      expected->folder = (base / expected->folder).string();
    }
    std::string environment = row.environment.empty() ? "" : (base / row.environment).string();
    EXPECT_EQ(HostContext::locateAppDirectory(environment, (base / row.program).string(), layout),
              expected)
        << row.program << " with " << ::testing::PrintToString(row.editors);
  }
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

// A draft still being written when the window goes must finish before the
// process tears down the libraries it uses.
TEST_F(HostContextTest, RetiringTheBridgeWaitsForTheCallsStillRunningOnIt) {
  using namespace std::chrono_literals;
  HostContext host(std::nullopt);
  EXPECT_TRUE(host.retireBridge(0ms));
  auto bridge = std::make_shared<testing::FakeBridge>();
  host.setBridge(bridge);
  std::atomic<bool> answered = false;
  std::thread call([&answered, held = host.bridge()]() mutable {
    held->handle(contracts::BridgeRequest::make("PUT", "slow", {}, {}, {}));
    answered = true;
    held.reset();
  });
  std::thread release([&bridge] {
    std::this_thread::sleep_for(100ms);
    bridge->releaseSlow();
  });
  EXPECT_TRUE(host.retireBridge(10s));
  EXPECT_TRUE(answered);
  EXPECT_EQ(host.bridge(), nullptr);
  call.join();
  release.join();

  host.setBridge(bridge);
  auto stuck = host.bridge();
  EXPECT_FALSE(host.retireBridge(20ms));
}

}  // namespace
}  // namespace vorna::app
