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

// Each submenu as "label=action" items, sections separated by "|".
std::vector<std::string> describe(GMenuModel* bar) {
  std::vector<std::string> menus;
  for (int i = 0; i < g_menu_model_get_n_items(bar); ++i) {
    std::string text = attribute(bar, i, G_MENU_ATTRIBUTE_LABEL) + ":";
    auto submenu = contracts::GObjectPtr<GMenuModel>::adopt(
        g_menu_model_get_item_link(bar, i, G_MENU_LINK_SUBMENU));
    for (int s = 0; s < g_menu_model_get_n_items(submenu.get()); ++s) {
      auto section = contracts::GObjectPtr<GMenuModel>::adopt(
          g_menu_model_get_item_link(submenu.get(), s, G_MENU_LINK_SECTION));
      text += s > 0 ? " |" : "";
      for (int k = 0; k < g_menu_model_get_n_items(section.get()); ++k) {
        text += " " + attribute(section.get(), k, G_MENU_ATTRIBUTE_LABEL) + "=" +
                attribute(section.get(), k, G_MENU_ATTRIBUTE_ACTION);
      }
    }
    menus.push_back(text);
  }
  return menus;
}

TEST(MainMenuTest, FourSubmenusWithTheirItemsAndSeparators) {
  contracts::GObjectPtr<GMenu> bar = MainMenu::build("Vorna");
  EXPECT_EQ(
      describe(G_MENU_MODEL(bar.get())),
      (std::vector<std::string>{
          "Vorna: About Vorna=app.about | Quit Vorna=app.quit",
          "File: Open…=app.open | Save=win.save New Page…=win.new-page Find…=win.find "
          "Page History…=win.history | "
          "Close=win.close",
          "Edit: Undo=win.undo Redo=win.redo | Cut=win.cut Copy=win.copy Paste=win.paste "
          "Paste and Match Style=win.paste-as-plain-text Delete=win.delete "
          "Select All=win.select-all",
          "Window: Minimize=win.minimize Zoom=win.zoom | Bring All to Front=app.bring-all-to-front",
      }));
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
