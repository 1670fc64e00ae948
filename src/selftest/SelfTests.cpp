#include "selftest/SelfTests.h"

#include "app/LaunchOptions.h"
#include "selftest/E2ERunner.h"
#include "selftest/SmokeRunner.h"

namespace vorna::selftest {

std::unique_ptr<app::SelfTest> SelfTests::create(app::EditorWindowController& controller,
                                                 const app::LaunchOptions& options,
                                                 std::function<void(int)> end) {
  if (options.isSmoke) {
    return std::make_unique<SmokeRunner>(controller, *options.smokeFolder,
                                         SelfTestOutput::standard(std::move(end)));
  }
  if (!options.isE2E) {
    return nullptr;
  }
  E2ERunner::Settings settings;
  settings.snapshotPath = E2ERunner::processEnvironment(E2ERunner::kSnapshotVariable);
  if (settings.snapshotPath && settings.snapshotPath->empty()) {
    settings.snapshotPath.reset();
  }
  return std::make_unique<E2ERunner>(controller, *options.e2eFolder, options.e2ePage,
                                     *options.e2eScenario, SelfTestOutput::standard(std::move(end)),
                                     std::move(settings));
}

}  // namespace vorna::selftest
