#pragma once

#include <string>
#include <vector>

typedef struct _GActionMap GActionMap;
typedef struct _WebKitContextMenu WebKitContextMenu;

namespace vorna::app {

// The editor's context menu holds editing items only: the engine's own
// offers navigation (Back, Reload, which would reload the editor without
// asking), links and the inspector besides. Main thread.
struct EditingMenu {
  EditingMenu() = delete;

  // Rewrites `menu` in place. Over editable text: Undo and Redo, the engine's
  // Cut, Copy, Paste and Delete where it offered them, and Select All, with
  // Undo, Redo and Select All taken from `actions` ("undo", "redo",
  // "select-all"), which run the editor's own commands. Elsewhere only Copy
  // stays, when it was offered. Returns the labels of the items kept, in
  // order, separators as "-"; empty when nothing is left to show.
  static std::vector<std::string> trim(WebKitContextMenu* menu, GActionMap* actions);

  // The labels of a menu's items, separators as "-".
  static std::vector<std::string> labels(WebKitContextMenu* menu);
};

}  // namespace vorna::app
