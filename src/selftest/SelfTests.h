#pragma once

#include <functional>
#include <memory>

#include "app/SelfTest.h"

namespace vorna::selftest {

// What the program hands the application as its app::SelfTest::Factory: the
// smoke test for --smoke, the scenario runner for --e2e, each writing to the
// process's own streams.
struct SelfTests {
  SelfTests() = delete;

  static std::unique_ptr<app::SelfTest> create(app::EditorWindowController& controller,
                                               const app::LaunchOptions& options,
                                               std::function<void(int)> end);
};

}  // namespace vorna::selftest
