#pragma once

#include <gio/gio.h>

#include <string>
#include <utility>
#include <vector>

#include "contracts/GObjectPtr.h"

typedef struct _GtkApplication GtkApplication;

namespace vorna::app {

// The menu bar of the interactive mode. Items name actions: "app.*" ones are
// the application's (about, quit, open, bring-all-to-front), "win.*" ones the
// editor window's (close, save, new page, find, history, the editing commands,
// minimize, zoom).
struct MainMenu {
  MainMenu() = delete;

  // Four submenus: the application's (titled with the name, since a GTK menu
  // bar has no place for an untitled one), "File", "Edit" and "Window";
  // separators are sections.
  static contracts::GObjectPtr<GMenu> build(const std::string& appName);

  // Action name and accelerator, Control standing for the Command key: the
  // shell's own keys only. The editor's keys (save, find, undo, the
  // clipboard, Tab) must reach the page, so their items only show the key.
  static const std::vector<std::pair<std::string, std::string>>& accelerators();

  // Sets the menu bar and the accelerators on the application. Main thread.
  static void install(GtkApplication* application, const std::string& appName);
};

}  // namespace vorna::app
