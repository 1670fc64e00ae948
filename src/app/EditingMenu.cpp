#include "app/EditingMenu.h"

#include <webkit/webkit.h>

#include <map>

namespace vorna::app {
namespace {

const std::map<WebKitContextMenuAction, const char*>& stockLabels() {
  static const std::map<WebKitContextMenuAction, const char*> labels = {
      {WEBKIT_CONTEXT_MENU_ACTION_GO_BACK, "Back"},
      {WEBKIT_CONTEXT_MENU_ACTION_GO_FORWARD, "Forward"},
      {WEBKIT_CONTEXT_MENU_ACTION_STOP, "Stop"},
      {WEBKIT_CONTEXT_MENU_ACTION_RELOAD, "Reload"},
      {WEBKIT_CONTEXT_MENU_ACTION_INSPECT_ELEMENT, "Inspect Element"},
      {WEBKIT_CONTEXT_MENU_ACTION_OPEN_LINK, "Open Link"},
      {WEBKIT_CONTEXT_MENU_ACTION_COPY_LINK_TO_CLIPBOARD, "Copy Link Address"},
      {WEBKIT_CONTEXT_MENU_ACTION_CUT, "Cut"},
      {WEBKIT_CONTEXT_MENU_ACTION_COPY, "Copy"},
      {WEBKIT_CONTEXT_MENU_ACTION_PASTE, "Paste"},
      {WEBKIT_CONTEXT_MENU_ACTION_PASTE_AS_PLAIN_TEXT, "Paste as Plain Text"},
      {WEBKIT_CONTEXT_MENU_ACTION_DELETE, "Delete"},
      {WEBKIT_CONTEXT_MENU_ACTION_SELECT_ALL, "Select All"},
      {WEBKIT_CONTEXT_MENU_ACTION_INPUT_METHODS, "Input Methods"},
      {WEBKIT_CONTEXT_MENU_ACTION_UNICODE, "Insert Unicode Control Character"},
  };
  return labels;
}

// The engine's items that edit text and stay, in the order they are shown.
constexpr WebKitContextMenuAction kKept[] = {
    WEBKIT_CONTEXT_MENU_ACTION_CUT,    WEBKIT_CONTEXT_MENU_ACTION_COPY,
    WEBKIT_CONTEXT_MENU_ACTION_PASTE,  WEBKIT_CONTEXT_MENU_ACTION_PASTE_AS_PLAIN_TEXT,
    WEBKIT_CONTEXT_MENU_ACTION_DELETE,
};

std::string labelOf(WebKitContextMenuItem* item) {
  if (webkit_context_menu_item_is_separator(item)) {
    return "-";
  }
  WebKitContextMenuAction action = webkit_context_menu_item_get_stock_action(item);
  if (action == WEBKIT_CONTEXT_MENU_ACTION_CUSTOM) {
    GAction* gaction = webkit_context_menu_item_get_gaction(item);
    const char* name = gaction == nullptr ? nullptr : g_action_get_name(gaction);
    static const std::map<std::string, const char*> ours = {
        {"undo", "Undo"}, {"redo", "Redo"}, {"select-all", "Select All"}};
    auto found = name == nullptr ? ours.end() : ours.find(name);
    return found == ours.end() ? (name == nullptr ? "?" : name) : found->second;
  }
  auto found = stockLabels().find(action);
  return found == stockLabels().end() ? "action " + std::to_string(static_cast<int>(action))
                                      : found->second;
}

void appendAction(WebKitContextMenu* menu, GActionMap* actions, const char* name,
                  const char* label) {
  if (GAction* action = g_action_map_lookup_action(actions, name)) {
    webkit_context_menu_append(menu,
                               webkit_context_menu_item_new_from_gaction(action, label, nullptr));
  }
}

}  // namespace

std::vector<std::string> EditingMenu::labels(WebKitContextMenu* menu) {
  std::vector<std::string> out;
  for (GList* item = webkit_context_menu_get_items(menu); item != nullptr; item = item->next) {
    out.push_back(labelOf(WEBKIT_CONTEXT_MENU_ITEM(item->data)));
  }
  return out;
}

std::vector<std::string> EditingMenu::trim(WebKitContextMenu* menu, GActionMap* actions) {
  bool offered[std::size(kKept)] = {};
  for (GList* item = webkit_context_menu_get_items(menu); item != nullptr; item = item->next) {
    WebKitContextMenuAction action =
        webkit_context_menu_item_get_stock_action(WEBKIT_CONTEXT_MENU_ITEM(item->data));
    for (size_t i = 0; i < std::size(kKept); ++i) {
      offered[i] = offered[i] || action == kKept[i];
    }
  }
  // The engine offers Paste only where text can be edited.
  bool editable = offered[2];
  webkit_context_menu_remove_all(menu);
  if (editable) {
    appendAction(menu, actions, "undo", "Undo");
    appendAction(menu, actions, "redo", "Redo");
    webkit_context_menu_append(menu, webkit_context_menu_item_new_separator());
  }
  for (size_t i = 0; i < std::size(kKept); ++i) {
    if (offered[i] && (editable || kKept[i] == WEBKIT_CONTEXT_MENU_ACTION_COPY)) {
      webkit_context_menu_append(menu, webkit_context_menu_item_new_from_stock_action(kKept[i]));
    }
  }
  if (editable) {
    webkit_context_menu_append(menu, webkit_context_menu_item_new_separator());
    appendAction(menu, actions, "select-all", "Select All");
  }
  return labels(menu);
}

}  // namespace vorna::app
