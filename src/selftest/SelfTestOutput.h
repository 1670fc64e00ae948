#pragma once

#include <functional>
#include <string_view>

namespace vorna::selftest {

// Where a self-test's results go and how it ends the run. The self-tests
// write through this, never to the streams directly, so that their own tests
// can read what they wrote and see how they ended without ending the process.
struct SelfTestOutput {
  std::function<void(std::string_view)> out;  // standard output, flushed at once
  std::function<void(std::string_view)> err;  // standard error
  // Flushes standard output and ends the run with the exit code. Called at
  // most once by a runner; the run may still deliver callbacks afterwards,
  // which the runner ignores.
  std::function<void(int)> exit;

  // The process's own streams; `exit` as given.
  static SelfTestOutput standard(std::function<void(int)> exit);
};

}  // namespace vorna::selftest
