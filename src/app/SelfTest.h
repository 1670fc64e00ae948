#pragma once

#include <functional>
#include <memory>

namespace vorna::app {

class EditorWindowController;
struct LaunchOptions;

// A run that drives the editor window in place of a person: the --smoke and
// --e2e modes. The application only starts one; the runs themselves live
// above it and are handed in by the program as a Factory.
class SelfTest {
 public:
  // The run `options` ask for, on a window made for that mode; `end` ends the
  // application with an exit code, once. Null when the options ask for none.
  using Factory = std::function<std::unique_ptr<SelfTest>(EditorWindowController& controller,
                                                          const LaunchOptions& options,
                                                          std::function<void(int)> end)>;

  virtual ~SelfTest() = default;
  // Starts the run; it goes on from the main loop.
  virtual void run() = 0;
};

}  // namespace vorna::app
