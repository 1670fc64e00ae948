#include <gtest/gtest.h>

#include "app/MainMenu.h"

namespace vorna::app {
namespace {

TEST(MainMenuTest, TheEditorsKeysAreShownButLeftToThePage) {
  for (const auto& [action, accelerator] : MainMenu::accelerators()) {
    EXPECT_TRUE(action.rfind("app.", 0) == 0 || action == "win.close" || action == "win.minimize" ||
                action == "win.paste-as-plain-text")
        << action << " " << accelerator << " would never reach the editor";
  }
}

}  // namespace
}  // namespace vorna::app
