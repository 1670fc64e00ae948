#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/MainLoopTimer.h"
#include "app/PageScript.h"
#include "app/SelfTest.h"
#include "contracts/Json.h"
#include "selftest/SelfTestOutput.h"

typedef struct _WebKitUserContentManager WebKitUserContentManager;

namespace vorna::selftest {

// The end-to-end scenario runner: opens a folder in the editor with the real
// bridge, waits until the editor has listed it, installs two reporting hooks
// in the page (window.__e2eSay and window.__e2eDone), runs a scenario script
// from $VORNA_E2E_DIR, and relays what the scenario says as "E2E {text}" and
// "E2E-DONE {json}" lines on standard output. The run ends once: when the
// scenario reports (0), or on a failure to start it or the time-out (2).
// A scenario may also hand over to another one in a different folder or page
// ({"open": path, "then": scenario}): the runner opens it the way Open… does
// and runs that scenario there. Every context menu the editor shows is
// reported as "E2E-MENU offered={items} shown={items}", items joined by "|".
// Everything runs on the main thread.
class E2ERunner : public app::SelfTest {
 public:
  static constexpr const char* kHandlerName = "vornaE2E";
  static constexpr const char* kScenarioDirVariable = "VORNA_E2E_DIR";
  static constexpr const char* kSnapshotVariable = "VORNA_E2E_SNAPSHOT";
  // Polls 0 to kLastPoll, so 251 in all, about 50 seconds.
  static constexpr int kLastPoll = 250;
  static constexpr const char* kUnencodable =
      "{\"error\":\"the scenario reported something that will not encode\"}";

  struct Settings {
    std::chrono::seconds timeOut{60};
    std::chrono::milliseconds pollInterval{200};
    // Looks up an environment variable; nothing when it is not set.
    std::function<std::optional<std::string>(const char*)> environment = processEnvironment;
    // When set, a PNG of the editor as shown is saved here after the
    // scenario reported and before the run ends (a picture for people).
    std::optional<std::string> snapshotPath;
  };

  // The controller must be headless and outlive the runner.
  E2ERunner(app::EditorWindowController& controller, const std::string& folder,
            std::optional<std::string> page, std::string scenario, SelfTestOutput output,
            Settings settings);
  ~E2ERunner() override;
  E2ERunner(const E2ERunner&) = delete;
  E2ERunner& operator=(const E2ERunner&) = delete;

  // Arms the time-out, registers the reporting handler, opens the folder and
  // starts waiting for the editor.
  void run() override;

  // Handles one message of the page's vornaE2E handler ("say" first, then
  // "done"); anything but an object is ignored, and everything once finished.
  void receive(const std::optional<contracts::Json>& message);

  // The page's readiness test: true only once the editor has listed the folder.
  static const char* readinessScript();
  // The script that defines window.__e2eSay and window.__e2eDone.
  static std::string hookScript();
  // _common.js (when not empty), a line feed, ";", a line feed, then the scenario.
  static std::string scenarioScript(const std::string& common, const std::string& scenario);

  static std::optional<std::string> processEnvironment(const char* name);

  bool finished() const { return finished_; }
  // How often the page was asked whether the editor is ready.
  int polls() const { return polls_; }

 private:
  void waitForFolder(int attempt);
  void handOver(const std::string& path, const std::string& scenario);
  void inject();
  void runScenario(const std::string& script);
  // Ends the run once with `code`; `problem` (without "e2e: ") goes to
  // standard error first when given.
  void finish(int code, const std::optional<std::string>& problem = std::nullopt);
  void finishWithSnapshot();
  app::ScriptDone held(std::function<void(app::ScriptOutcome)> then);

  app::EditorWindowController& controller_;
  const std::string folder_;
  const std::optional<std::string> page_;
  std::string scenario_;
  SelfTestOutput output_;
  Settings settings_;
  bool finished_ = false;
  int polls_ = 0;
  app::MainLoopTimer deadline_;
  app::MainLoopTimer poll_;
  WebKitUserContentManager* handlerManager_ = nullptr;  // where the handler is registered
  unsigned long handlerSignal_ = 0;
  std::shared_ptr<E2ERunner*> alive_ = std::make_shared<E2ERunner*>(this);
};

}  // namespace vorna::selftest
