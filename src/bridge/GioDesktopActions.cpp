#include "bridge/GioDesktopActions.h"

#include <gio/gio.h>

#include <utility>

#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"
#include "storage/PathNames.h"

namespace vorna::bridge {
namespace {

constexpr const char* kFileManagerName = "org.freedesktop.FileManager1";
constexpr const char* kFileManagerPath = "/org/freedesktop/FileManager1";

// Everything one reveal needs while it travels through the asynchronous calls.
struct RevealCall {
  std::optional<std::string> busAddress;
  std::string uri;
  std::string folderUri;
  GioDesktopActions::Launcher launcher;
  BridgeLogSink log;
};

struct LaunchCall {
  std::string uri;
  BridgeLogSink log;
};

// Runs `work` once from the default main context. The closure owns copies of
// everything it uses, so the actions object may be gone by then.
void postToMainContext(std::function<void()> work) {
  auto* heap = new std::function<void()>(std::move(work));
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      [](gpointer data) -> gboolean {
        try {
          (*static_cast<std::function<void()>*>(data))();
        } catch (...) {
          // An exception must not unwind through GLib's dispatch.
        }
        return G_SOURCE_REMOVE;
      },
      heap, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

void showFolderInstead(const RevealCall& call, const GError* error) {
  call.log(bridgeLogLine("no file manager showed " + call.uri + " (" +
                         (error != nullptr ? error->message : "no bus") + "); opening " +
                         call.folderUri));
  try {
    call.launcher(call.folderUri);
  } catch (...) {
  }
}

void onShown(GObject* source, GAsyncResult* result, gpointer data) {
  std::unique_ptr<RevealCall> call(static_cast<RevealCall*>(data));
  GError* raw = nullptr;
  GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &raw);
  contracts::GErrorPtr error(raw);
  if (reply != nullptr) {
    g_variant_unref(reply);
    return;
  }
  showFolderInstead(*call, error.get());
}

void onConnected(GObject* /*source*/, GAsyncResult* result, gpointer data) {
  std::unique_ptr<RevealCall> call(static_cast<RevealCall*>(data));
  GError* raw = nullptr;
  GDBusConnection* connection = call->busAddress
                                    ? g_dbus_connection_new_for_address_finish(result, &raw)
                                    : g_bus_get_finish(result, &raw);
  contracts::GErrorPtr error(raw);
  if (connection == nullptr) {
    showFolderInstead(*call, error.get());
    return;
  }
  // The pending call holds its own reference to the connection.
  auto owned = contracts::GObjectPtr<GDBusConnection>::adopt(connection);
  const gchar* uris[] = {call->uri.c_str(), nullptr};
  g_dbus_connection_call(connection, kFileManagerName, kFileManagerPath, kFileManagerName,
                         "ShowItems", g_variant_new("(^ass)", uris, ""), nullptr,
                         G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onShown, call.release());
}

void startReveal(std::unique_ptr<RevealCall> call) {
  if (call->busAddress) {
    const std::string address = *call->busAddress;
    g_dbus_connection_new_for_address(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, onConnected, call.release());
  } else {
    g_bus_get(G_BUS_TYPE_SESSION, nullptr, onConnected, call.release());
  }
}

void onLaunched(GObject* /*source*/, GAsyncResult* result, gpointer data) {
  std::unique_ptr<LaunchCall> call(static_cast<LaunchCall*>(data));
  GError* raw = nullptr;
  if (!g_app_info_launch_default_for_uri_finish(result, &raw)) {
    contracts::GErrorPtr error(raw);
    call->log(bridgeLogLine("cannot open " + call->uri + ": " +
                            (error ? error->message : "unknown error")));
  }
}

void launchWithDefaultApplication(const std::string& uri, const BridgeLogSink& log) {
  auto* call = new LaunchCall{uri, log};
  g_app_info_launch_default_for_uri_async(call->uri.c_str(), nullptr, nullptr, onLaunched, call);
}

}  // namespace

GioDesktopActions::GioDesktopActions(std::optional<std::string> busAddress, Launcher launcher,
                                     BridgeLogSink log)
    : busAddress_(std::move(busAddress)), launcher_(std::move(launcher)), log_(std::move(log)) {
  if (!launcher_) {
    launcher_ = [log = log_](const std::string& uri) { launchWithDefaultApplication(uri, log); };
  }
}

std::string GioDesktopActions::fileUri(const std::string& path) {
  contracts::GText uri(g_filename_to_uri(path.c_str(), nullptr, nullptr));
  return uri ? std::string(uri.get()) : "file://" + path;
}

void GioDesktopActions::reveal(const std::string& path) {
  auto call = std::make_unique<RevealCall>(RevealCall{
      busAddress_, fileUri(path), fileUri(storage::parentFolder(path)), launcher_, log_});
  // std::function needs a copyable closure; the shared pointer hands the call
  // on exactly once.
  auto shared = std::make_shared<std::unique_ptr<RevealCall>>(std::move(call));
  postToMainContext([shared] { startReveal(std::move(*shared)); });
}

void GioDesktopActions::open(const std::string& path) {
  postToMainContext([launcher = launcher_, uri = fileUri(path)] { launcher(uri); });
}

std::shared_ptr<DesktopActions> makeDefaultDesktopActions() {
  return std::make_shared<GioDesktopActions>();
}

}  // namespace vorna::bridge
