#include "app/MainMenu.h"

#include <gtk/gtk.h>

namespace vorna::app {
namespace {

struct Item {
  const char* label;
  const char* action;
};

// One submenu: its items in sections, a section boundary being a separator.
GObjectPtr<GMenu> submenu(const std::vector<std::vector<Item>>& sections) {
  auto menu = GObjectPtr<GMenu>::adopt(g_menu_new());
  for (const auto& items : sections) {
    auto section = GObjectPtr<GMenu>::adopt(g_menu_new());
    for (const Item& item : items) {
      g_menu_append(section.get(), item.label, item.action);
    }
    g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(section.get()));
  }
  return menu;
}

}  // namespace

GObjectPtr<GMenu> MainMenu::build(const std::string& appName) {
  std::string about = "About " + appName;
  std::string quit = "Quit " + appName;
  // The desktop's own Hide, Hide Others and Show All have no counterpart here.
  auto application = submenu({{{about.c_str(), "app.about"}}, {{quit.c_str(), "app.quit"}}});
  auto file = submenu({{{"Open…", "app.open"}}, {{"Close", "win.close"}}});
  auto edit = submenu({{{"Undo", "win.undo"}, {"Redo", "win.redo"}},
                       {{"Cut", "win.cut"},
                        {"Copy", "win.copy"},
                        {"Paste", "win.paste"},
                        {"Paste and Match Style", "win.paste-as-plain-text"},
                        {"Delete", "win.delete"},
                        {"Select All", "win.select-all"}}});
  auto window = submenu({{{"Minimize", "win.minimize"}, {"Zoom", "win.zoom"}},
                         {{"Bring All to Front", "app.bring-all-to-front"}}});

  auto bar = GObjectPtr<GMenu>::adopt(g_menu_new());
  g_menu_append_submenu(bar.get(), appName.c_str(), G_MENU_MODEL(application.get()));
  g_menu_append_submenu(bar.get(), "File", G_MENU_MODEL(file.get()));
  g_menu_append_submenu(bar.get(), "Edit", G_MENU_MODEL(edit.get()));
  g_menu_append_submenu(bar.get(), "Window", G_MENU_MODEL(window.get()));
  return bar;
}

const std::vector<std::pair<std::string, std::string>>& MainMenu::accelerators() {
  static const std::vector<std::pair<std::string, std::string>> table = {
      {"app.quit", "<Control>q"},
      {"app.open", "<Control>o"},
      {"win.close", "<Control>w"},
      {"win.undo", "<Control>z"},
      {"win.redo", "<Control><Shift>z"},
      {"win.cut", "<Control>x"},
      {"win.copy", "<Control>c"},
      {"win.paste", "<Control>v"},
      {"win.paste-as-plain-text", "<Control><Alt><Shift>v"},
      {"win.select-all", "<Control>a"},
      {"win.minimize", "<Control>m"},
  };
  return table;
}

void MainMenu::install(GtkApplication* application, const std::string& appName) {
  GObjectPtr<GMenu> bar = build(appName);
  gtk_application_set_menubar(application, G_MENU_MODEL(bar.get()));
  for (const auto& [action, accelerator] : accelerators()) {
    const char* accels[] = {accelerator.c_str(), nullptr};
    gtk_application_set_accels_for_action(application, action.c_str(), accels);
  }
}

}  // namespace vorna::app
