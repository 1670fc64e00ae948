// The two self-test runners on the real editor page under a virtual display.
// The scenario runner's bridge is the read-only smoke bridge on a scratch
// folder, so these tests need nothing from the workspace bridge.
#include <gtest/gtest.h>
#include <webkit/webkit.h>

#include <chrono>
#include <memory>
#include <string>

#include "LiveHarness.h"
#include "app/E2ERunner.h"
#include "app/EditorWindowController.h"
#include "app/SignalConnect.h"
#include "app/SmokeBridge.h"
#include "app/SmokeRunner.h"
#include "support/TempDir.h"

namespace vorna::app::testing {
namespace {

using contracts::Json;

// What a runner wrote and how it ended the run.
struct Recorded {
  std::string out;
  std::string err;
  std::optional<int> exit;
  int exits = 0;

  SelfTestOutput output() {
    return SelfTestOutput{[this](std::string_view text) { out += text; },
                          [this](std::string_view text) { err += text; },
                          [this](int code) {
                            exit = code;
                            ++exits;
                          }};
  }
};

class E2ERunnerLiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.makeFolder("site");
    dir.write("site/a.html", "<!DOCTYPE html><title>A</title><p>Page A</p>");
    dir.makeFolder("empty");
    dir.makeFolder("scenarios");
    settings.environment = [this](const char* name) -> std::optional<std::string> {
      if (std::string(name) == E2ERunner::kScenarioDirVariable) {
        return scenarioDir;
      }
      return std::nullopt;
    };
  }

  void TearDown() override {
    runner.reset();
    controller.reset();
  }

  void scenario(const std::string& name, const std::string& text) {
    dir.write("scenarios/" + name + ".js", text);
  }

  void start(const std::string& name, const std::string& folder,
             std::optional<std::string> page = std::nullopt) {
    started = std::chrono::steady_clock::now();
    runner = std::make_unique<E2ERunner>(*controller, folder, std::move(page), name,
                                         recorded.output(), settings);
    runner->run();
  }

  bool waitForExit(std::chrono::milliseconds limit = 40s) {
    return runUntil([&] { return recorded.exit.has_value(); }, limit);
  }

  // The run ended with `code`, having written exactly `out` and `err`.
  void expectEnded(const std::string& out, const std::string& err, int code) const {
    EXPECT_EQ(recorded.out, out);
    EXPECT_EQ(recorded.err, err);
    EXPECT_EQ(recorded.exit, code);
    EXPECT_EQ(recorded.exits, 1);
  }

  double secondsSinceStart() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  }

  vorna::testing::TempDir dir;
  std::string site = dir / "site";
  std::optional<std::string> scenarioDir = dir / "scenarios";
  E2ERunner::Settings settings;
  Recorded recorded;
  std::vector<std::string> opened;
  std::unique_ptr<EditorWindowController> controller = std::make_unique<EditorWindowController>(
      false, true, nullptr,
      testSeams([](const std::string& folder) { return std::make_shared<SmokeBridge>(folder); },
                &opened));
  std::unique_ptr<E2ERunner> runner;
  std::chrono::steady_clock::time_point started;
};

TEST_F(E2ERunnerLiveTest, TheScenarioSeesTheCommonTextAndTheOpenPageAndReportsOnce) {
  dir.write("scenarios/_common.js", "function greet(name) { return 'hello ' + name; }");
  scenario("greet", "__e2eSay(greet(VN.path().split('/').pop())); __e2eDone();");
  start("greet", site, "a.html");
  ASSERT_TRUE(waitForExit());
  expectEnded("E2E hello a.html\nE2E-DONE {}\n", "", 0);
  EXPECT_TRUE(runner->finished());
  EXPECT_GE(runner->polls(), 1);
}

TEST_F(E2ERunnerLiveTest, MessagesAfterTheFirstDoneAreIgnored) {
  bool marked = false;
  WebKitUserContentManager* manager =
      webkit_web_view_get_user_content_manager(controller->webView());
  webkit_user_content_manager_register_script_message_handler(manager, "testMarker", nullptr);
  connectSignal(
      manager, "script-message-received::testMarker",
      +[](WebKitUserContentManager*, JSCValue*, gpointer data) {
        *static_cast<bool*>(data) = true;
      },
      &marked);
  // Messages arrive in the order they were posted: once the marker is in,
  // everything before it has been handled.
  scenario("twice",
           "var cycle = {}; cycle.self = cycle; __e2eDone(cycle); __e2eDone({ n: 2 });"
           "__e2eSay('late'); window.webkit.messageHandlers.testMarker.postMessage('end');");
  start("twice", site);
  ASSERT_TRUE(runUntil([&] { return marked; }, 40s));
  expectEnded("E2E-DONE {\"error\":\"the scenario reported something that will not encode\"}\n", "",
              0);
  g_signal_handlers_disconnect_by_data(manager, &marked);
  webkit_user_content_manager_unregister_script_message_handler(manager, "testMarker", nullptr);
}

TEST_F(E2ERunnerLiveTest, AScenarioThatNeverReportsEndsAtTheTimeOutEvenAfterThrowing) {
  // Long enough for the bundled editor to load on a busy machine.
  settings.timeOut = 15s;
  scenario("idle", "__e2eSay('started'); throw new Error('boom');");
  start("idle", site);
  ASSERT_TRUE(waitForExit());
  EXPECT_GE(secondsSinceStart(), 15.0);
  EXPECT_EQ(recorded.out, "E2E started\n");
  EXPECT_EQ(recorded.exit, 2);
  const std::string threw = "e2e: idle threw on entry: ";
  const std::string timedOut = "e2e: scenario idle produced no result within 15s\n";
  ASSERT_EQ(recorded.err.rfind(threw, 0), 0u) << recorded.err;
  EXPECT_NE(recorded.err.find("Error: boom"), std::string::npos) << recorded.err;
  ASSERT_GE(recorded.err.size(), timedOut.size());
  EXPECT_EQ(recorded.err.substr(recorded.err.size() - timedOut.size()), timedOut);
}

TEST_F(E2ERunnerLiveTest, AMissingScenarioFileEndsTheRun) {
  start("absent", site);
  ASSERT_TRUE(waitForExit());
  expectEnded("", "e2e: no scenario at " + *scenarioDir + "/absent.js\n", 2);
}

TEST_F(E2ERunnerLiveTest, AScenarioFolderThatIsUnsetOrEmptyEndsTheRun) {
  scenario("greet", "__e2eDone();");
  for (std::optional<std::string> value :
       {std::optional<std::string>(), std::optional<std::string>("")}) {
    scenarioDir = value;
    recorded = Recorded{};
    runner.reset();
    start("greet", site);
    ASSERT_TRUE(waitForExit());
    expectEnded("", "e2e: VORNA_E2E_DIR is not set\n", 2);
  }
}

TEST_F(E2ERunnerLiveTest, AnEditorThatNeverGetsReadyEndsAfterItsLastPoll) {
  settings.pollInterval = 5ms;  // 251 polls in a few seconds instead of fifty
  scenario("greet", "__e2eDone();");
  start("greet", dir / "empty");  // nothing listed: the editor never counts as ready
  ASSERT_TRUE(waitForExit());
  EXPECT_LT(secondsSinceStart(), 40.0);
  expectEnded("", "e2e: the editor never finished opening " + (dir / "empty") + "\n", 2);
  EXPECT_EQ(runner->polls(), 251);
}

TEST_F(E2ERunnerLiveTest, ASnapshotOfTheEditorIsSavedBeforeTheRunEnds) {
  settings.snapshotPath = dir / "editor.png";
  scenario("shot", "__e2eDone({ shot: true });");
  start("shot", site, "a.html");
  ASSERT_TRUE(waitForExit());
  expectEnded("E2E-DONE {\"shot\":true}\n", "", 0);
  std::string png = dir.read("editor.png");
  ASSERT_GT(png.size(), 1000u);
  EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
}

TEST(SmokeRunnerLiveTest, AFolderWithoutItsPageIsNotConfinedButTheRunCompletes) {
  vorna::testing::TempDir dir;
  dir.write("b.html", "<p>b</p>");
  std::vector<std::string> opened;
  auto controller = std::make_unique<EditorWindowController>(
      true, true, nullptr,
      testSeams(
          [](const std::string&) -> std::shared_ptr<contracts::BridgeHandling> {
            throw std::runtime_error("the smoke test opens no folder");
          },
          &opened));
  Recorded recorded;
  SmokeRunner smoke(*controller, dir.path(), recorded.output());
  smoke.run();
  ASSERT_TRUE(runUntil([&] { return recorded.exit.has_value(); }, 40s));
  EXPECT_EQ(recorded.exit, 0);
  EXPECT_EQ(recorded.err, "");
  ASSERT_FALSE(recorded.out.empty());
  EXPECT_EQ(recorded.out.back(), '\n');
  Json report = Json::parse(recorded.out);
  Json expected = {{"loaded", true},
                   {"editor", true},
                   {"origin", "vorna://app"},
                   {"list_status", 200},
                   {"list_names", {"b.html"}},
                   {"put_echo_bytes", 100000},
                   {"bridge_path", "scheme"},
                   {"event_delivered", true},
                   {"smoke_bridge_confined", false},
                   {"external_navigation_blocked", true},
                   {"external_launch_attempts", 0},
                   {"link_click_frame_stayed", true},
                   {"link_click_launch_attempts", 1}};
  EXPECT_EQ(report, expected);
  EXPECT_EQ(opened, std::vector<std::string>{}) << "the smoke test handed a link to the browser";
  EXPECT_EQ(smoke.result(), expected);
}

}  // namespace
}  // namespace vorna::app::testing
