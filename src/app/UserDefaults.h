#pragma once

#include <optional>
#include <string>

#include "app/WindowFrame.h"

namespace vorna::app {

// The user's persisted choices: one GLib key file. Strings live in the group
// "Vorna"; a window frame lives in a group named after its autosave name.
// Every call reads or writes the file anew, so separate instances agree.
// Main thread.
class UserDefaults {
 public:
  static constexpr const char* kLastFolderKey = "VornaLastFolderPath";
  static constexpr const char* kWindowAutosaveName = "VornaMainWindow";

  explicit UserDefaults(std::string path) : path_(std::move(path)) {}

  // $XDG_CONFIG_HOME/vorna/vorna.conf, or ~/.config/vorna/vorna.conf when
  // the variable is unset or not absolute. Read from the environment on every call.
  static std::string standardPath();

  const std::string& path() const { return path_; }

  std::optional<std::string> string(const std::string& key) const;
  // Creates the folder and the file when needed; false when they cannot be
  // written (the choice is then simply not remembered).
  bool setString(const std::string& key, const std::string& value);

  // Nothing unless width and height are both stored and positive.
  std::optional<WindowFrame> windowFrame(const std::string& autosaveName) const;
  bool setWindowFrame(const std::string& autosaveName, const WindowFrame& frame);

 private:
  std::string path_;
};

}  // namespace vorna::app
