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

namespace vorna::selftest {

// The smoke self-test: loads the real editor page with the read-only
// SmokeBridge on a folder, drives it through six steps (basics, bridge,
// event, confinement, navigation, link click) and reports what it saw as one
// JSON object on standard output. The report judges nothing; the exit code
// says only whether the run completed (0) or stopped on a failed load or the
// time-out (1). Everything runs on the main thread.
class SmokeRunner : public app::SelfTest {
 public:
  static constexpr std::chrono::seconds kTimeOut{30};
  // The host the navigation steps point at; it never resolves, and a host
  // that behaves never asks.
  static constexpr const char* kExternalOrigin = "https://external.invalid";
  static constexpr const char* kEncodeFailure = "{\"error\":\"could not encode the smoke result\"}";

  // `folder` is expected to hold a page named a.html. The controller must be
  // a smoke-mode one and outlive the runner.
  SmokeRunner(app::EditorWindowController& controller, const std::string& folder,
              SelfTestOutput output);
  ~SmokeRunner() override;
  SmokeRunner(const SmokeRunner&) = delete;
  SmokeRunner& operator=(const SmokeRunner&) = delete;

  // Arms the time-out, installs the smoke bridge and loads the editor page
  // without a folder; the steps follow the load.
  void run() override;

  // The 13 entries of a report whose steps recorded nothing.
  static contracts::Json initialResult();
  // A script's result as a map: it must be a string holding a JSON object.
  static std::optional<contracts::Json> decode(const app::ScriptOutcome& outcome);
  // The report line without its line feed.
  static std::string reportText(const contracts::Json& result);

  const contracts::Json& result() const { return result_; }
  bool finished() const { return finished_; }

 private:
  using Then = std::function<void()>;

  void loaded(bool success);
  void settle(int attempt);
  void stepBasics();
  void stepBridge();
  void stepEvent();
  void stepConfinement();
  void stepNavigation();
  void stepLinkClick();
  // Prints the report once and ends the run with `exit`.
  void report(int exit);

  void evaluateRaw(const std::string& script, std::function<void(app::ScriptOutcome)> then);
  void evaluate(const std::string& script,
                std::function<void(std::optional<contracts::Json>)> then);
  void callAsync(const std::string& body, bool withBytes,
                 std::function<void(std::optional<contracts::Json>)> then);
  void after(std::chrono::milliseconds delay, Then then);
  // Wraps a completion so that it does nothing once the runner is gone.
  app::ScriptDone held(std::function<void(app::ScriptOutcome)> then);

  app::EditorWindowController& controller_;
  const std::string folder_;
  SelfTestOutput output_;
  bool finished_ = false;
  contracts::Json result_;
  int linkClickStart_ = 0;
  app::MainLoopTimer timeOut_;
  app::MainLoopTimer pause_;
  std::shared_ptr<SmokeRunner*> alive_ = std::make_shared<SmokeRunner*>(this);
};

}  // namespace vorna::selftest
