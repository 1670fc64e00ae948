#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bridge/BridgeLog.h"
#include "bridge/DesktopActions.h"

namespace vorna::bridge {

// The desktop as GIO reaches it. Each call is posted as an idle callback on the
// default main context; whatever runs that context's loop (the application's
// main thread) carries it out later, and without a running loop nothing
// happens and nothing blocks.
//
// - reveal: the D-Bus method org.freedesktop.FileManager1.ShowItems with the
//   item's file URI, on the session bus (or the bus at `busAddress`). When no
//   file manager answers it, the item's folder is opened with its default
//   application instead, which shows the folder if not the selection.
// - open: the item's file URI handed to `launcher`.
//
// The default launcher is g_app_info_launch_default_for_uri_async, whose
// failure is logged as "cannot open {uri}: {error}".
class GioDesktopActions final : public DesktopActions {
 public:
  // Opens a URI with the default application; called on the main context.
  using Launcher = std::function<void(const std::string& uri)>;

  explicit GioDesktopActions(std::optional<std::string> busAddress = std::nullopt,
                             Launcher launcher = nullptr,
                             BridgeLogSink log = writeBridgeLogToStandardError);

  void reveal(const std::string& path) override;
  void open(const std::string& path) override;

  // The file URI of an absolute path; a name that is not valid UTF-8 is
  // percent-encoded byte for byte.
  static std::string fileUri(const std::string& path);

 private:
  std::optional<std::string> busAddress_;
  Launcher launcher_;
  BridgeLogSink log_;
};

// The actions the application uses unless told otherwise.
std::shared_ptr<DesktopActions> makeDefaultDesktopActions();

}  // namespace vorna::bridge
