#include "app/UserDefaults.h"

#include <glib.h>

#include "contracts/GUniquePtr.h"
#include "storage/UserFolders.h"

namespace vorna::app {
namespace {

constexpr const char* kGroup = "Vorna";

contracts::GKeyFilePtr load(const std::string& path) {
  contracts::GKeyFilePtr file(g_key_file_new());
  g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
  return file;
}

bool save(GKeyFile* file, const std::string& path) {
  contracts::GText folder(g_path_get_dirname(path.c_str()));
  if (g_mkdir_with_parents(folder.get(), 0700) != 0) {
    return false;
  }
  return g_key_file_save_to_file(file, path.c_str(), nullptr) != FALSE;
}

}  // namespace

std::string UserDefaults::standardPath() {
  std::string base = storage::xdgFolder("XDG_CONFIG_HOME", ".config")
                         .value_or(std::string(g_get_home_dir()) + "/.config");
  return base + "/vorna/vorna.conf";
}

std::optional<std::string> UserDefaults::string(const std::string& key) const {
  contracts::GKeyFilePtr file = load(path_);
  contracts::GText value(g_key_file_get_string(file.get(), kGroup, key.c_str(), nullptr));
  if (!value) {
    return std::nullopt;
  }
  return std::string(value.get());
}

bool UserDefaults::setString(const std::string& key, const std::string& value) {
  contracts::GKeyFilePtr file = load(path_);
  g_key_file_set_string(file.get(), kGroup, key.c_str(), value.c_str());
  return save(file.get(), path_);
}

std::optional<WindowFrame> UserDefaults::windowFrame(const std::string& autosaveName) const {
  contracts::GKeyFilePtr file = load(path_);
  GError* widthError = nullptr;
  GError* heightError = nullptr;
  int width = g_key_file_get_integer(file.get(), autosaveName.c_str(), "width", &widthError);
  int height = g_key_file_get_integer(file.get(), autosaveName.c_str(), "height", &heightError);
  contracts::GErrorPtr ownedWidthError(widthError);
  contracts::GErrorPtr ownedHeightError(heightError);
  if (widthError != nullptr || heightError != nullptr || width <= 0 || height <= 0) {
    return std::nullopt;
  }
  bool maximized = g_key_file_get_boolean(file.get(), autosaveName.c_str(), "maximized", nullptr);
  return WindowFrame{width, height, maximized};
}

bool UserDefaults::setWindowFrame(const std::string& autosaveName, const WindowFrame& frame) {
  contracts::GKeyFilePtr file = load(path_);
  g_key_file_set_integer(file.get(), autosaveName.c_str(), "width", frame.width);
  g_key_file_set_integer(file.get(), autosaveName.c_str(), "height", frame.height);
  g_key_file_set_boolean(file.get(), autosaveName.c_str(), "maximized", frame.maximized);
  return save(file.get(), path_);
}

}  // namespace vorna::app
