#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/LaunchOptions.h"
#include "app/PageTarget.h"
#include "app/SelfTest.h"

typedef struct _GtkApplication GtkApplication;

namespace vorna::app {

class EditorWindowController;

// The application: reads the command line, picks the mode, creates the editor
// window, chooses the first folder, remembers the last one, and answers the
// desktop's requests to open folders and pages. Main thread.
class AppDelegate {
 public:
  static constexpr const char* kApplicationId = "app.vorna.Vorna";
  static constexpr const char* kAppName = "Vorna";

  // `arguments` exclude the program's own path. `selfTests` builds the run of
  // a self-test mode; without it those modes end at once with status 2.
  explicit AppDelegate(const std::vector<std::string>& arguments,
                       SelfTest::Factory selfTests = nullptr);
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // Runs the application until its last window closes; the exit status.
  // In the interactive mode a second launch hands its folder or page to the
  // running instance and ends; the self-test modes always run on their own.
  int run(const char* programPath);

  // The folder to open at start: one the desktop asked for before launch
  // finished, else the --open one, else the remembered one (without a page),
  // else none.
  static PageTarget firstTarget(const PageTarget& pending, const PageTarget& requested,
                                const std::optional<std::string>& remembered);

  const LaunchOptions& options() const { return options_; }

 private:
  void applicationDidFinishLaunching();
  void applicationOpen(const std::vector<std::string>& paths);
  // SIGTERM, SIGINT or SIGHUP: the page stores its draft (at most
  // DraftHandshake::kWait), then the host ends with 128 + the signal.
  void endOnSignal(int signal);
  void openFolder();
  void openTarget(const PageTarget& target);
  std::optional<std::string> rememberedFolder() const;
  void remember(const std::string& folder);
  void installActions();
  void startSelfTest();
  // Ends a self-test run with its exit code once the loop returns.
  void endSelfTest(int code);

  const LaunchOptions options_;
  const SelfTest::Factory selfTests_;
  GtkApplication* application_ = nullptr;  // alive for the whole of `run`
  bool launched_ = false;
  int exitStatus_ = 0;  // overrides the loop's own status when set
  int endingSignal_ = 0;
  std::unique_ptr<EditorWindowController> controller_;
  // The self-test that drives the window, if any; it goes before the window.
  std::unique_ptr<SelfTest> selfTest_;
  PageTarget pending_;
};

}  // namespace vorna::app
