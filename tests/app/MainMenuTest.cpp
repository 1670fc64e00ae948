#include <gtest/gtest.h>

#include "app/MainMenu.h"
#include "contracts/GUniquePtr.h"

namespace vorna::app {
namespace {

std::string attribute(GMenuModel* model, int item, const char* name) {
  char* raw = nullptr;
  g_menu_model_get_item_attribute(model, item, name, "s", &raw);
  contracts::GText owned(raw);
  return owned ? owned.get() : "";
}

TEST(MainMenuTest, TheEditorsKeysAreShownButLeftToThePage) {
  for (const auto& [action, accelerator] : MainMenu::accelerators()) {
    EXPECT_TRUE(action.rfind("app.", 0) == 0 || action == "win.close" || action == "win.minimize" ||
                action == "win.paste-as-plain-text")
        << action << " " << accelerator << " would never reach the editor";
  }
  contracts::GObjectPtr<GMenu> bar = MainMenu::build("Vorna");
  auto edit = contracts::GObjectPtr<GMenuModel>::adopt(
      g_menu_model_get_item_link(G_MENU_MODEL(bar.get()), 2, G_MENU_LINK_SUBMENU));
  auto history = contracts::GObjectPtr<GMenuModel>::adopt(
      g_menu_model_get_item_link(edit.get(), 0, G_MENU_LINK_SECTION));
  EXPECT_EQ(attribute(history.get(), 0, "accel"), "<Control>z");
}

}  // namespace
}  // namespace vorna::app
