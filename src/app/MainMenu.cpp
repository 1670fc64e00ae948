#include "app/MainMenu.h"

#include <gtk/gtk.h>

namespace vorna::app {
namespace {

struct Item {
  const char* label;
  const char* action;
  // A key the editor page handles itself: shown in the menu, but never bound
  // in the shell, whose accelerators would take the key before the page.
  const char* pageKey = nullptr;
};

// One submenu: its items in sections, a section boundary being a separator.
contracts::GObjectPtr<GMenu> submenu(const std::vector<std::vector<Item>>& sections) {
  auto menu = contracts::GObjectPtr<GMenu>::adopt(g_menu_new());
  for (const auto& items : sections) {
    auto section = contracts::GObjectPtr<GMenu>::adopt(g_menu_new());
    for (const Item& item : items) {
      auto entry =
          contracts::GObjectPtr<GMenuItem>::adopt(g_menu_item_new(item.label, item.action));
      if (item.pageKey != nullptr) {
        g_menu_item_set_attribute(entry.get(), "accel", "s", item.pageKey);
      }
      g_menu_append_item(section.get(), entry.get());
    }
    g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(section.get()));
  }
  return menu;
}

}  // namespace

contracts::GObjectPtr<GMenu> MainMenu::build(const std::string& appName) {
  std::string about = "About " + appName;
  std::string quit = "Quit " + appName;
  // The desktop's own Hide, Hide Others and Show All have no counterpart here.
  auto application = submenu({{{about.c_str(), "app.about"}}, {{quit.c_str(), "app.quit"}}});
  auto file = submenu({{{"Open…", "app.open"}},
                       {{"Save", "win.save", "<Control>s"},
                        {"New Page…", "win.new-page", "<Control>n"},
                        {"Find…", "win.find", "<Control>f"},
                        {"Page History…", "win.history"}},
                       {{"Close", "win.close"}}});
  auto edit =
      submenu({{{"Undo", "win.undo", "<Control>z"}, {"Redo", "win.redo", "<Control><Shift>z"}},
               {{"Cut", "win.cut", "<Control>x"},
                {"Copy", "win.copy", "<Control>c"},
                {"Paste", "win.paste", "<Control>v"},
                {"Paste and Match Style", "win.paste-as-plain-text"},
                {"Delete", "win.delete"},
                {"Select All", "win.select-all", "<Control>a"}}});
  auto window = submenu({{{"Minimize", "win.minimize"}, {"Zoom", "win.zoom"}},
                         {{"Bring All to Front", "app.bring-all-to-front"}}});

  auto bar = contracts::GObjectPtr<GMenu>::adopt(g_menu_new());
  g_menu_append_submenu(bar.get(), appName.c_str(), G_MENU_MODEL(application.get()));
  g_menu_append_submenu(bar.get(), "File", G_MENU_MODEL(file.get()));
  g_menu_append_submenu(bar.get(), "Edit", G_MENU_MODEL(edit.get()));
  g_menu_append_submenu(bar.get(), "Window", G_MENU_MODEL(window.get()));
  return bar;
}

const std::vector<std::pair<std::string, std::string>>& MainMenu::accelerators() {
  static const std::vector<std::pair<std::string, std::string>> table = {
      {"app.quit", "<Control>q"},     {"app.open", "<Control>o"},
      {"win.close", "<Control>w"},    {"win.paste-as-plain-text", "<Control><Alt><Shift>v"},
      {"win.minimize", "<Control>m"},
  };
  return table;
}

void MainMenu::install(GtkApplication* application, const std::string& appName) {
  contracts::GObjectPtr<GMenu> bar = build(appName);
  gtk_application_set_menubar(application, G_MENU_MODEL(bar.get()));
  for (const auto& [action, accelerator] : accelerators()) {
    const char* accels[] = {accelerator.c_str(), nullptr};
    gtk_application_set_accels_for_action(application, action.c_str(), accels);
  }
}

}  // namespace vorna::app
