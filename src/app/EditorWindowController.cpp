#include "app/EditorWindowController.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "app/AppSchemeHandler.h"
#include "app/BridgeMessageHandler.h"
#include "app/EditingMenu.h"
#include "app/EditorUrl.h"
#include "app/JscJson.h"
#include "app/MainThread.h"
#include "app/NavigationPolicy.h"
#include "app/SignalConnect.h"
#include "app/UserDefaults.h"
#include "app/UserScripts.h"
#include "contracts/GUniquePtr.h"
#include "contracts/Json.h"
#include "recovery/PathForms.h"
#include "storage/PathNames.h"
#include "storage/UserFolders.h"

namespace vorna::app {
namespace {

using Alive = std::weak_ptr<EditorWindowController*>;

constexpr int kWidth = 1200;
constexpr int kHeight = 800;
// How long a closing window waits for a save or draft still being written:
// long enough for any page, short enough that a stuck disk cannot keep a
// quitting editor around.
constexpr std::chrono::seconds kBridgeRetireLimit{30};

// Runs a callback body so that no exception reaches GLib or WebKit.
template <typename Body>
void guarded(const char* what, Body&& body) {
  try {
    body();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "Vorna: %s failed: %s\n", what, error.what());
  } catch (...) {
    std::fprintf(stderr, "Vorna: %s failed\n", what);
  }
}

struct UserScriptDeleter {
  void operator()(WebKitUserScript* script) const { webkit_user_script_unref(script); }
};
struct ContentFilterDeleter {
  void operator()(WebKitUserContentFilter* filter) const {
    webkit_user_content_filter_unref(filter);
  }
};
using UserScriptPtr = std::unique_ptr<WebKitUserScript, UserScriptDeleter>;
using ContentFilterPtr = std::unique_ptr<WebKitUserContentFilter, ContentFilterDeleter>;

// The user data of an async call: the controller, if it still exists.
EditorWindowController* claim(gpointer data) {
  std::unique_ptr<Alive> alive(static_cast<Alive*>(data));
  std::shared_ptr<EditorWindowController*> self = alive->lock();
  return self ? *self : nullptr;
}

// An XDG folder, or the one GLib names when the environment names none.
std::string userFolder(const char* variable, std::string_view underHome) {
  return storage::xdgFolder(variable, underHome)
      .value_or(storage::joinPath(g_get_home_dir(), underHome));
}

// Where compiled content filters are kept between runs.
std::string filterFolder() {
  return storage::joinPath(userFolder("XDG_CACHE_HOME", ".cache"), "vorna/content-filters");
}

std::string blockerIdentifier() {
  contracts::GText digest(
      g_compute_checksum_for_string(G_CHECKSUM_SHA256, NavigationPolicy::contentBlockRules(), -1));
  return "vorna-external-" + std::string(digest.get()).substr(0, 16);
}

}  // namespace

EditorWindowController::EditorWindowController(bool isSmoke, bool headless,
                                               GtkApplication* application)
    : EditorWindowController(isSmoke, headless, application, Seams{}) {}

EditorWindowController::EditorWindowController(bool isSmoke, bool headless,
                                               GtkApplication* application, Seams seams)
    : isSmoke_(isSmoke),
      headless_(isSmoke || headless),
      seams_(std::move(seams)),
      host_(std::make_shared<HostContext>(HostContext::locateAppDirectory())),
      bridgeMessages_(std::make_unique<BridgeMessageHandler>(host_)),
      cancellable_(contracts::GObjectPtr<GCancellable>::adopt(g_cancellable_new())) {
  buildWebView();
  drafts_ = std::make_unique<DraftHandshake>(webView_.get());
  buildWindow(application);
  connectSignals(this);
  installContentBlocker();
}

EditorWindowController::~EditorWindowController() {
  alive_.reset();
  g_cancellable_cancel(cancellable_.get());
  if (bridge_) {
    bridge_->stopWatching();
  }
  if (!host_->retireBridge(kBridgeRetireLimit)) {
    std::fputs("Vorna: a save or draft was still being written 30 s after the window closed\n", stderr);
  }
  g_signal_handlers_disconnect_by_data(webView_.get(), this);
  g_signal_handlers_disconnect_by_data(window_.get(), this);
  g_signal_handlers_disconnect_by_data(contentManager_.get(), this);
  bridgeMessages_->disconnect(contentManager_.get());
  webkit_user_content_manager_unregister_script_message_handler(
      contentManager_.get(), ShellMessageHandler::kName, nullptr);
  if (!windowClosed_) {
    gtk_window_destroy(window_.get());
  }
  if (!privateFilterFolder_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(privateFilterFolder_, ignored);
  }
}

void EditorWindowController::buildWebView() {
  context_ = contracts::GObjectPtr<WebKitWebContext>::adopt(webkit_web_context_new());
  // The document-browser model keeps a page the main frame left whole for a
  // while (the document viewer keeps none), so that the editor can be brought
  // back as it was, the text being edited included (see keepEditor).
  webkit_web_context_set_cache_model(context_.get(), WEBKIT_CACHE_MODEL_DOCUMENT_BROWSER);
  AppSchemeHandler::registerWith(context_.get(), host_);

  contentManager_ =
      contracts::GObjectPtr<WebKitUserContentManager>::adopt(webkit_user_content_manager_new());
  std::vector<UserScript> scripts = UserScripts::all();
  scripts.push_back(UserScripts::bodyGuard());
  for (const UserScript& script : scripts) {
    UserScriptPtr injected(
        webkit_user_script_new(script.source.c_str(),
                               script.mainFrameOnly ? WEBKIT_USER_CONTENT_INJECT_TOP_FRAME
                                                    : WEBKIT_USER_CONTENT_INJECT_ALL_FRAMES,
                               WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, nullptr, nullptr));
    webkit_user_content_manager_add_script(contentManager_.get(), injected.get());
  }
  bridgeMessages_->connect(contentManager_.get());
  webkit_user_content_manager_register_script_message_handler(contentManager_.get(),
                                                              ShellMessageHandler::kName, nullptr);

  auto settings = contracts::GObjectPtr<WebKitSettings>::adopt(webkit_settings_new());
  webkit_settings_set_enable_javascript(settings.get(), TRUE);
  webkit_settings_set_enable_developer_extras(settings.get(), TRUE);
  webkit_settings_set_enable_back_forward_navigation_gestures(settings.get(), FALSE);
  // The editor and a preview that runs no scripts draw nothing that needs GPU
  // layers. Without them a keystroke reaches the screen a frame sooner where
  // GL is a software rasteriser, and each window holds about 80 MiB less.
  webkit_settings_set_hardware_acceleration_policy(settings.get(),
                                                   WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);

  // The engine's own data (local storage) and cache go where the default
  // session would put them, but never to a folder named by a relative XDG
  // variable, which would move with the folder the program was started from.
  std::string data = storage::joinPath(userFolder("XDG_DATA_HOME", ".local/share"), "vorna");
  std::string cache = storage::joinPath(userFolder("XDG_CACHE_HOME", ".cache"), "vorna");
  auto session = contracts::GObjectPtr<WebKitNetworkSession>::adopt(
      webkit_network_session_new(data.c_str(), cache.c_str()));
  webView_ = contracts::GObjectPtr<WebKitWebView>::ref(WEBKIT_WEB_VIEW(g_object_new(
      WEBKIT_TYPE_WEB_VIEW, "web-context", context_.get(), "network-session", session.get(),
      "user-content-manager", contentManager_.get(), "settings", settings.get(), nullptr)));
}

void EditorWindowController::buildWindow(GtkApplication* application) {
  window_ = contracts::GObjectPtr<GtkWindow>::ref(
      GTK_WINDOW(g_object_new(GTK_TYPE_APPLICATION_WINDOW, nullptr)));
  if (application != nullptr) {
    gtk_window_set_application(window_.get(), application);
  }
  gtk_application_window_set_show_menubar(GTK_APPLICATION_WINDOW(window_.get()), TRUE);
  gtk_window_set_title(window_.get(), "Vorna");
  gtk_window_set_default_size(window_.get(), kWidth, kHeight);
  gtk_window_set_child(window_.get(), GTK_WIDGET(webView_.get()));
  // GTK places new windows itself; there is no centring to ask for.
  if (!headless_) {
    restoreFrame();
  }

  static const GActionEntry kWindowActions[] = {
      {"close",
       [](GSimpleAction*, GVariant*, gpointer data) {
         gtk_window_close(static_cast<EditorWindowController*>(data)->window_.get());
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"minimize",
       [](GSimpleAction*, GVariant*, gpointer data) {
         gtk_window_minimize(static_cast<EditorWindowController*>(data)->window_.get());
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"zoom",
       [](GSimpleAction*, GVariant*, gpointer data) {
         GtkWindow* window = static_cast<EditorWindowController*>(data)->window_.get();
         if (gtk_window_is_maximized(window)) {
           gtk_window_unmaximize(window);
         } else {
           gtk_window_maximize(window);
         }
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
  };
  g_action_map_add_action_entries(G_ACTION_MAP(window_.get()), kWindowActions,
                                  G_N_ELEMENTS(kWindowActions), this);
  // Clipboard items run the engine's own commands, which the editor takes up
  // through the page's clipboard events; the rest are the editor's commands
  // (its undo history, its selection), as are Save, New Page, Find and History.
  static const std::pair<const char*, const char*> kEditing[] = {
      {"cut", WEBKIT_EDITING_COMMAND_CUT},
      {"copy", WEBKIT_EDITING_COMMAND_COPY},
      {"paste", WEBKIT_EDITING_COMMAND_PASTE},
      {"paste-as-plain-text", WEBKIT_EDITING_COMMAND_PASTE_AS_PLAIN_TEXT},
  };
  static const std::pair<const char*, const char*> kPageCommands[] = {
      {"undo", "undo"},     {"redo", "redo"}, {"select-all", "selectAll"},
      {"delete", "delete"}, {"save", "save"}, {"new-page", "newPage"},
      {"find", "find"},     {"history", "history"},
  };
  auto addAction = [this](const char* name, const char* command, GCallback run) {
    auto action = contracts::GObjectPtr<GSimpleAction>::adopt(g_simple_action_new(name, nullptr));
    g_object_set_data(G_OBJECT(action.get()), "vorna-command", const_cast<char*>(command));
    connectSignal(action.get(), "activate", run, this);
    g_action_map_add_action(G_ACTION_MAP(window_.get()), G_ACTION(action.get()));
  };
  for (const auto& [name, command] : kEditing) {
    addAction(name, command, G_CALLBACK(+[](GSimpleAction* activated, GVariant*, gpointer data) {
                const auto* editing = static_cast<const char*>(
                    g_object_get_data(G_OBJECT(activated), "vorna-command"));
                webkit_web_view_execute_editing_command(
                    static_cast<EditorWindowController*>(data)->webView_.get(), editing);
              }));
  }
  for (const auto& [name, command] : kPageCommands) {
    addAction(name, command, G_CALLBACK(+[](GSimpleAction* activated, GVariant*, gpointer data) {
                static_cast<EditorWindowController*>(data)->runPageCommand(static_cast<const char*>(
                    g_object_get_data(G_OBJECT(activated), "vorna-command")));
              }));
  }
}

struct EditorWindowController::Signals {
  static gboolean onCloseRequest(GtkWindow* window, gpointer data);
  static void onDestroy(GtkWidget* window, gpointer data);
  static void onTitleChanged(WebKitWebView* view, GParamSpec* property, gpointer data);
  static gboolean onContextMenu(WebKitWebView* view, WebKitContextMenu* menu,
                                WebKitHitTestResult* hit, gpointer data);
  static void onShellMessage(WebKitUserContentManager* manager, JSCValue* value, gpointer data);
  static gboolean onDecidePolicy(WebKitWebView* view, WebKitPolicyDecision* decision,
                                 WebKitPolicyDecisionType type, gpointer data);
  static GtkWidget* onCreate(WebKitWebView* view, WebKitNavigationAction* action, gpointer data);
  static void onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer data);
  static gboolean onLoadFailed(WebKitWebView* view, WebKitLoadEvent event, char* uri, GError* error,
                               gpointer data);
  static void onWebProcessTerminated(WebKitWebView* view, WebKitWebProcessTerminationReason reason,
                                     gpointer data);
  static gboolean onScriptDialog(WebKitWebView* view, WebKitScriptDialog* dialog, gpointer data);
  static gboolean onRunFileChooser(WebKitWebView* view, WebKitFileChooserRequest* request,
                                   gpointer data);
  // The URL a navigation asks for, and whether a link was clicked.
  static std::pair<std::string, bool> navigationOf(WebKitNavigationAction* action);
};

// One handler per signal; `data` is the controller, which outlives the web
// view and the window whose signals reach it.
void EditorWindowController::connectSignals(EditorWindowController* self) {
  GtkWindow* window = self->window_.get();
  WebKitWebView* view = self->webView_.get();
  connectSignal(window, "close-request", Signals::onCloseRequest, self);
  connectSignal(window, "destroy", Signals::onDestroy, self);
  connectSignal(view, "notify::title", Signals::onTitleChanged, self);
  connectSignal(view, "context-menu", Signals::onContextMenu, self);
  connectSignal(self->contentManager_.get(), "script-message-received::vornaShell",
                Signals::onShellMessage, self);
  connectSignal(view, "decide-policy", Signals::onDecidePolicy, self);
  connectSignal(view, "create", Signals::onCreate, self);
  connectSignal(view, "load-changed", Signals::onLoadChanged, self);
  connectSignal(view, "load-failed", Signals::onLoadFailed, self);
  connectSignal(view, "web-process-terminated", Signals::onWebProcessTerminated, self);
  connectSignal(view, "script-dialog", Signals::onScriptDialog, self);
  connectSignal(view, "run-file-chooser", Signals::onRunFileChooser, self);
}

gboolean EditorWindowController::Signals::onCloseRequest(GtkWindow*, gpointer data) {
  auto* controller = static_cast<EditorWindowController*>(data);
  if (!controller->closeAgreed_ && controller->bridge_) {
    // The window closes once the page has stored any unsaved text.
    controller->storePageDraft([alive = Alive(controller->alive_)] {
      if (auto held = alive.lock(); held && !(*held)->windowClosed_) {
        (*held)->closeAgreed_ = true;
        gtk_window_close((*held)->window_.get());
      }
    });
    return TRUE;
  }
  if (!controller->headless_) {
    guarded("saving the window frame", [&] { controller->saveFrame(); });
  }
  return FALSE;
}

void EditorWindowController::Signals::onDestroy(GtkWidget*, gpointer data) {
  static_cast<EditorWindowController*>(data)->windowClosed_ = true;
}

void EditorWindowController::Signals::onTitleChanged(WebKitWebView* view, GParamSpec*,
                                                     gpointer data) {
  // The editor names the page, its folder and whether it is saved.
  const char* title = webkit_web_view_get_title(view);
  gtk_window_set_title(static_cast<EditorWindowController*>(data)->window_.get(),
                       title != nullptr && *title != '\0' ? title : "Vorna");
}

gboolean EditorWindowController::Signals::onContextMenu(WebKitWebView*, WebKitContextMenu* menu,
                                                        WebKitHitTestResult*, gpointer data) {
  auto* controller = static_cast<EditorWindowController*>(data);
  bool none = true;
  guarded("a context menu", [&] {
    std::vector<std::string> offered = EditingMenu::labels(menu);
    std::vector<std::string> shown =
        EditingMenu::trim(menu, G_ACTION_MAP(controller->window_.get()));
    if (controller->contextMenuObserver_) {
      controller->contextMenuObserver_(offered, shown);
    }
    none = shown.empty();
  });
  return none ? TRUE : FALSE;
}

void EditorWindowController::Signals::onShellMessage(WebKitUserContentManager*, JSCValue* value,
                                                     gpointer data) {
  guarded("a shell message", [&] {
    static_cast<EditorWindowController*>(data)->shellMessages_.receive(jsonFromJsc(value));
  });
}

gboolean EditorWindowController::Signals::onDecidePolicy(WebKitWebView*,
                                                         WebKitPolicyDecision* decision,
                                                         WebKitPolicyDecisionType type,
                                                         gpointer data) {
  auto* controller = static_cast<EditorWindowController*>(data);
  bool allow = false;
  guarded("a navigation decision", [&] {
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
      auto* response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
      const char* uri =
          webkit_uri_request_get_uri(webkit_response_policy_decision_get_request(response));
      // Unsupported types would otherwise turn into downloads.
      allow = NavigationPolicy::allowsResponse(
                  uri == nullptr ? "" : uri,
                  webkit_response_policy_decision_is_main_frame_main_resource(response)) &&
              webkit_response_policy_decision_is_mime_type_supported(response);
      return;
    }
    WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
        WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const auto [url, link] = navigationOf(action);
    // The engine does not say which frame a navigation is for. So about:,
    // blob: and data: pass here for every frame; a main-frame blob: or data:
    // document is then refused by the response decision (and the engine
    // refuses top-level data: itself). A main-frame about: page has no
    // response: the commit brings the editor back (keepEditor).
    NavigationDecision decided =
        type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION
            ? NavigationPolicy::decideNewWindow(url, link)
            : NavigationPolicy::decide(url, link, NavigationPolicy::Frame::unknown);
    controller->countNavigation(decided, url);
    allow = decided.allow;
  });
  if (allow) {
    webkit_policy_decision_use(decision);
  } else {
    webkit_policy_decision_ignore(decision);
  }
  return TRUE;
}

GtkWidget* EditorWindowController::Signals::onCreate(WebKitWebView*, WebKitNavigationAction* action,
                                                     gpointer data) {
  guarded("a new-window request", [&] {
    const auto [url, link] = navigationOf(action);
    static_cast<EditorWindowController*>(data)->countNavigation(
        NavigationPolicy::decideNewWindow(url, link), url);
  });
  return nullptr;
}

void EditorWindowController::Signals::onLoadChanged(WebKitWebView*, WebKitLoadEvent event,
                                                    gpointer data) {
  auto* controller = static_cast<EditorWindowController*>(data);
  if (event == WEBKIT_LOAD_COMMITTED) {
    guarded("a committed load", [&] { controller->keepEditor(); });
  }
  if (event == WEBKIT_LOAD_FINISHED) {
    guarded("a finished load", [&] { controller->finishLoad(true); });
    guarded("changes held back", [&] {
      for (const contracts::WorkspaceChange& held : std::exchange(controller->heldChanges_, {})) {
        controller->deliver(held);
      }
    });
  }
}

gboolean EditorWindowController::Signals::onLoadFailed(WebKitWebView*, WebKitLoadEvent, char*,
                                                       GError*, gpointer data) {
  guarded("a failed load", [&] { static_cast<EditorWindowController*>(data)->finishLoad(false); });
  return FALSE;
}

void EditorWindowController::Signals::onWebProcessTerminated(
    WebKitWebView*, WebKitWebProcessTerminationReason reason, gpointer) {
  const char* why = reason == WEBKIT_WEB_PROCESS_CRASHED ? "it crashed"
                    : reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT
                        ? "it exceeded its memory limit"
                        : "the host ended it";
  std::fprintf(stderr, "Vorna: the editor's web process ended: %s\n", why);
}

gboolean EditorWindowController::Signals::onScriptDialog(WebKitWebView*, WebKitScriptDialog* dialog,
                                                         gpointer data) {
  switch (webkit_script_dialog_get_dialog_type(dialog)) {
    case WEBKIT_SCRIPT_DIALOG_ALERT:
      static_cast<EditorWindowController*>(data)->showAlert(dialog);
      return TRUE;
    case WEBKIT_SCRIPT_DIALOG_BEFORE_UNLOAD_CONFIRM:
      webkit_script_dialog_confirm_set_confirmed(dialog, TRUE);
      return TRUE;
    default:
      return TRUE;  // confirm answers false and prompt null, as with no dialog at all
  }
}

gboolean EditorWindowController::Signals::onRunFileChooser(WebKitWebView*,
                                                           WebKitFileChooserRequest* request,
                                                           gpointer data) {
  static_cast<EditorWindowController*>(data)->chooseFiles(request);
  return TRUE;
}

std::pair<std::string, bool> EditorWindowController::Signals::navigationOf(
    WebKitNavigationAction* action) {
  const char* uri = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
  return {uri == nullptr ? "" : uri, webkit_navigation_action_get_navigation_type(action) ==
                                         WEBKIT_NAVIGATION_TYPE_LINK_CLICKED};
}

namespace {

// A file chooser shown for a file input, with the request it answers; owned
// by the chooser's response and released there.
struct FileChoice {
  contracts::GObjectPtr<GtkFileChooserNative> chooser;
  contracts::GObjectPtr<WebKitFileChooserRequest> request;
};

}  // namespace

void EditorWindowController::chooseFiles(WebKitFileChooserRequest* request) {
  // The engine does not pass on a request for folders; file inputs pick files.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  auto* choice =
      new FileChoice{contracts::GObjectPtr<GtkFileChooserNative>::adopt(gtk_file_chooser_native_new(
                         "Open", window_.get(), GTK_FILE_CHOOSER_ACTION_OPEN, "Open", "Cancel")),
                     contracts::GObjectPtr<WebKitFileChooserRequest>::ref(request)};
  GtkFileChooser* chooser = GTK_FILE_CHOOSER(choice->chooser.get());
  gtk_file_chooser_set_select_multiple(chooser,
                                       webkit_file_chooser_request_get_select_multiple(request));
  if (GtkFileFilter* filter = webkit_file_chooser_request_get_mime_types_filter(request)) {
    gtk_file_chooser_add_filter(chooser, filter);
  }
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(chooser), TRUE);
  connectSignal(
      chooser, "response",
      +[](GtkNativeDialog* dialog, int response, gpointer data) {
        std::unique_ptr<FileChoice> owned(static_cast<FileChoice*>(data));
        std::vector<std::string> paths;
        if (response == GTK_RESPONSE_ACCEPT) {
          auto files = contracts::GObjectPtr<GListModel>::adopt(
              gtk_file_chooser_get_files(GTK_FILE_CHOOSER(dialog)));
          for (guint i = 0; i < g_list_model_get_n_items(files.get()); ++i) {
            auto file =
                contracts::GObjectPtr<GFile>::adopt(G_FILE(g_list_model_get_item(files.get(), i)));
            contracts::GText path(g_file_get_path(file.get()));
            if (path) {
              paths.emplace_back(path.get());
            }
          }
        }
        if (paths.empty()) {
          webkit_file_chooser_request_cancel(owned->request.get());
          return;
        }
        std::vector<const char*> list;
        for (const std::string& path : paths) {
          list.push_back(path.c_str());
        }
        list.push_back(nullptr);
        webkit_file_chooser_request_select_files(owned->request.get(), list.data());
      },
      choice);
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(chooser));
  G_GNUC_END_IGNORE_DEPRECATIONS
}

namespace {

struct ScriptDialogDeleter {
  void operator()(WebKitScriptDialog* dialog) const { webkit_script_dialog_unref(dialog); }
};
using ScriptDialogPtr = std::unique_ptr<WebKitScriptDialog, ScriptDialogDeleter>;

}  // namespace

void EditorWindowController::showAlert(WebKitScriptDialog* dialog) {
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GtkWidget* alert = gtk_message_dialog_new(
      window_.get(), static_cast<GtkDialogFlags>(GTK_DIALOG_MODAL | GTK_DIALOG_DESTROY_WITH_PARENT),
      GTK_MESSAGE_INFO, GTK_BUTTONS_OK, "%s", webkit_script_dialog_get_message(dialog));
  G_GNUC_END_IGNORE_DEPRECATIONS
  // The page waits in alert() until the dialog is closed.
  connectSignal(
      alert, "response",
      +[](GtkWidget* shown, int, gpointer data) {
        ScriptDialogPtr held(static_cast<WebKitScriptDialog*>(data));
        webkit_script_dialog_close(held.get());
        gtk_window_destroy(GTK_WINDOW(shown));
      },
      webkit_script_dialog_ref(dialog));
  gtk_window_present(GTK_WINDOW(alert));
}

void EditorWindowController::installContentBlocker() {
  filterStore_ = contracts::GObjectPtr<WebKitUserContentFilterStore>::adopt(
      webkit_user_content_filter_store_new(filterFolder().c_str()));
  std::string identifier = blockerIdentifier();
  // A filter compiled by an earlier run is reused; otherwise it is compiled now.
  webkit_user_content_filter_store_load(
      filterStore_.get(), identifier.c_str(), cancellable_.get(),
      [](GObject* source, GAsyncResult* result, gpointer data) {
        EditorWindowController* self = claim(data);
        ContentFilterPtr filter(webkit_user_content_filter_store_load_finish(
            WEBKIT_USER_CONTENT_FILTER_STORE(source), result, nullptr));
        if (self == nullptr) {
          return;
        }
        if (filter) {
          self->contentBlockerInstalled(filter.get(), "");
          return;
        }
        self->compileContentBlocker(filterFolder(), /*lastTry=*/false);
      },
      new Alive(alive_));
}

void EditorWindowController::compileContentBlocker(const std::string& folder, bool lastTry) {
  contracts::GBytesPtr rules(
      g_bytes_new_static(NavigationPolicy::contentBlockRules(),
                         std::char_traits<char>::length(NavigationPolicy::contentBlockRules())));
  struct Attempt {
    Alive alive;
    std::string folder;
    bool lastTry;
  };
  webkit_user_content_filter_store_save(
      filterStore_.get(), blockerIdentifier().c_str(), rules.get(), cancellable_.get(),
      [](GObject* saver, GAsyncResult* saved, gpointer held) {
        std::unique_ptr<Attempt> attempt(static_cast<Attempt*>(held));
        GError* error = nullptr;
        ContentFilterPtr compiled(webkit_user_content_filter_store_save_finish(
            WEBKIT_USER_CONTENT_FILTER_STORE(saver), saved, &error));
        contracts::GErrorPtr owned(error);
        std::shared_ptr<EditorWindowController*> self = attempt->alive.lock();
        if (!self) {
          return;
        }
        EditorWindowController& controller = **self;
        std::string failure = owned ? owned->message : "unknown error";
        if (!compiled && !attempt->lastTry) {
          // The cache folder cannot take it (not writable, full, not a
          // folder): a private folder of this run serves instead.
          if (std::optional<std::string> privateFolder = controller.makePrivateFilterFolder()) {
            std::fprintf(stderr,
                         "Vorna: the content filter could not be kept in %s (%s); it is compiled "
                         "into %s for this run\n",
                         attempt->folder.c_str(), failure.c_str(), privateFolder->c_str());
            controller.compileContentBlocker(*privateFolder, /*lastTry=*/true);
            return;
          }
        }
        controller.contentBlockerInstalled(compiled.get(), failure);
      },
      new Attempt{Alive(alive_), folder, lastTry});
}

std::optional<std::string> EditorWindowController::makePrivateFilterFolder() {
  GError* error = nullptr;
  contracts::GText made(g_dir_make_tmp("vorna-content-filter-XXXXXX", &error));
  contracts::GErrorPtr owned(error);
  if (!made) {
    return std::nullopt;
  }
  privateFilterFolder_ = made.get();
  filterStore_ = contracts::GObjectPtr<WebKitUserContentFilterStore>::adopt(
      webkit_user_content_filter_store_new(made.get()));
  return privateFilterFolder_;
}

void EditorWindowController::contentBlockerInstalled(WebKitUserContentFilter* filter,
                                                     const std::string& failure) {
  if (filter == nullptr) {
    // Without the blocker images and fetches could reach the network, so the
    // editor is not loaded at all.
    contentBlockerFailed_ = true;
    pendingUrl_.reset();
    presentError("Could not start the editor safely", failure);
    return;
  }
  webkit_user_content_manager_add_filter(contentManager_.get(), filter);
  contentBlockerReady_ = true;
  if (pendingUrl_ && !windowClosed_) {
    webkit_web_view_load_uri(webView_.get(), pendingUrl_->c_str());
  }
  pendingUrl_.reset();
}

void EditorWindowController::load(const std::optional<std::string>& folder,
                                  const std::optional<std::string>& page) {
  std::string url = editorUrl(folder, page);
  if (windowClosed_ || contentBlockerFailed_) {
    return;
  }
  if (!contentBlockerReady_) {
    pendingUrl_ = url;
    return;
  }
  webkit_web_view_load_uri(webView_.get(), url.c_str());
}

void EditorWindowController::openFolder(const std::string& folder,
                                        const std::optional<std::string>& page,
                                        std::function<void()> opened) {
  if (!bridge_) {
    swapFolder(folder, page, opened);
    return;
  }
  // The page talks to the old bridge until it has stored its draft there.
  storePageDraft([alive = Alive(alive_), folder, page, opened = std::move(opened)] {
    if (auto self = alive.lock()) {
      (*self)->swapFolder(folder, page, opened);
    }
  });
}

void EditorWindowController::swapFolder(const std::string& folder,
                                        const std::optional<std::string>& page,
                                        const std::function<void()>& opened) {
  if (bridge_) {
    bridge_->stopWatching();
    bridge_.reset();
  }
  host_->setBridge(nullptr);

  std::string standard = recovery::standardisedPath(folder);
  std::shared_ptr<contracts::BridgeHandling> bridge;
  try {
    bridge = seams_.makeBridge(standard);
    if (!bridge) {
      throw std::runtime_error("no bridge was built for " + standard);
    }
  } catch (const std::exception& error) {
    presentError("Could not open that folder", error.what());
    return;
  }
  bridge_ = bridge;
  host_->setBridge(bridge);
  folder_ = standard;
  bridge->setWatchNoticeHandler([alive = Alive(alive_)](const std::string& notice) {
    postToMainThread([alive, notice] {
      if (auto self = alive.lock()) {
        (*self)->presentWatchNotice(notice);
      }
    });
  });
  bridge->startWatching([alive = Alive(alive_)](const contracts::WorkspaceChange& change) {
    postToMainThread([alive, change] {
      if (auto self = alive.lock()) {
        (*self)->deliver(change);
      }
    });
  });
  load(standard, page);
  if (opened) {
    opened();
  }
}

void EditorWindowController::storePageDraft(std::function<void()> then) {
  if (windowClosed_ || !bridge_) {
    postToMainThread(std::move(then));
    return;
  }
  drafts_->request(std::move(then));
}

void EditorWindowController::runPageCommand(const std::string& name) {
  if (windowClosed_) {
    return;
  }
  std::string script =
      "window.vornaHost && window.vornaHost.command && void window.vornaHost.command(" +
      contracts::writeJson(contracts::Json(name)) + ")";
  webkit_web_view_evaluate_javascript(webView_.get(), script.c_str(),
                                      static_cast<gssize>(script.size()), nullptr, nullptr, nullptr,
                                      nullptr, nullptr);
}

void EditorWindowController::useSmokeBridge(std::shared_ptr<contracts::BridgeHandling> bridge) {
  bridge_ = bridge;
  host_->setBridge(std::move(bridge));
}

std::optional<std::string> EditorWindowController::changeScript(
    const contracts::WorkspaceChange& change) {
  std::string json = contracts::writeJson(change.jsonObject());
  if (json == "{}") {
    return std::nullopt;  // the writer's answer when the change will not encode
  }
  return "window.vornaHost && window.vornaHost.emit(" + json + ")";
}

void EditorWindowController::deliver(const contracts::WorkspaceChange& change) {
  std::optional<std::string> script = changeScript(change);
  if (!script || windowClosed_) {
    return;
  }
  // While the main frame is away (keepEditor is bringing the editor back) a
  // change would reach a page that is not the editor; it waits instead.
  const char* uri = webkit_web_view_get_uri(webView_.get());
  if (uri != nullptr && !NavigationPolicy::isEditorDocument(uri)) {
    heldChanges_.push_back(change);
    return;
  }
  webkit_web_view_evaluate_javascript(webView_.get(), script->c_str(),
                                      static_cast<gssize>(script->size()), nullptr, nullptr,
                                      nullptr, nullptr, nullptr);
}

void EditorWindowController::presentError(const std::string& title, const std::string& detail) {
  if (headless_ || windowClosed_) {
    std::fprintf(stderr, "Vorna: %s: %s\n", title.c_str(), detail.c_str());
    return;
  }
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GtkWidget* alert = gtk_message_dialog_new(
      window_.get(), static_cast<GtkDialogFlags>(GTK_DIALOG_MODAL | GTK_DIALOG_DESTROY_WITH_PARENT),
      GTK_MESSAGE_WARNING, GTK_BUTTONS_OK, "%s", title.c_str());
  gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(alert), "%s", detail.c_str());
  connectSignal(
      alert, "response",
      +[](GtkDialog* shown, int, gpointer) { gtk_window_destroy(GTK_WINDOW(shown)); }, nullptr);
  G_GNUC_END_IGNORE_DEPRECATIONS
  gtk_window_present(GTK_WINDOW(alert));
}

void EditorWindowController::presentWatchNotice(const std::string& notice) {
  // Once per run: the limits are the computer's, and opening another folder
  // does not change them.
  if (std::exchange(watchNoticeShown_, true)) {
    return;
  }
  presentError(kWatchNoticeTitle, notice);
}

void EditorWindowController::present() {
  if (!windowClosed_) {
    gtk_window_present(window_.get());
  }
}

void EditorWindowController::close(bool askPage) {
  if (windowClosed_) {
    return;
  }
  closeAgreed_ = closeAgreed_ || !askPage;
  gtk_window_close(window_.get());
}

void EditorWindowController::openWithDefaultBrowser(const std::string& url) {
  g_app_info_launch_default_for_uri_async(
      url.c_str(), nullptr, nullptr,
      [](GObject*, GAsyncResult* result, gpointer data) {
        contracts::GText uri(static_cast<char*>(data));
        GError* error = nullptr;
        if (!g_app_info_launch_default_for_uri_finish(result, &error)) {
          contracts::GErrorPtr owned(error);
          std::fprintf(stderr, "Vorna: could not open %s: %s\n", uri.get(), owned->message);
        }
      },
      g_strdup(url.c_str()));
}

void EditorWindowController::countNavigation(const NavigationDecision& decision,
                                             const std::string& url) {
  if (decision.blocksExternal) {
    blockedExternalNavigation_ = true;
  }
  if (decision.launchesExternal) {
    ++externalOpenAttempts_;
    if (!isSmoke_) {
      seams_.openExternally(url);
    }
  }
}

void EditorWindowController::keepEditor() {
  const char* uri = webkit_web_view_get_uri(webView_.get());
  if (uri == nullptr || NavigationPolicy::isEditorDocument(uri)) {
    return;
  }
  ++editorReturns_;
  std::string shown(uri);
  if (shown.size() > 80) {
    shown = shown.substr(0, 80) + "…";
  }
  std::fprintf(stderr, "Vorna: the editor's page was replaced by %s; it is brought back\n",
               shown.c_str());
  WebKitBackForwardListItem* back =
      webkit_back_forward_list_get_back_item(webkit_web_view_get_back_forward_list(webView_.get()));
  if (back != nullptr &&
      NavigationPolicy::isEditorDocument(webkit_back_forward_list_item_get_uri(back))) {
    // The engine keeps the left page whole where it can, and going back then
    // restores it as it was: the text being edited included.
    webkit_web_view_go_back(webView_.get());
    return;
  }
  load(folder_, std::nullopt);
}

void EditorWindowController::finishLoad(bool success) {
  std::function<void(bool)> callback = std::move(didFinishLoad_);
  didFinishLoad_ = nullptr;
  if (callback) {
    callback(success);
  }
}

void EditorWindowController::restoreFrame() {
  std::optional<WindowFrame> frame =
      UserDefaults(UserDefaults::standardPath()).windowFrame(UserDefaults::kWindowAutosaveName);
  if (!frame) {
    return;
  }
  gtk_window_set_default_size(window_.get(), frame->width, frame->height);
  if (frame->maximized) {
    gtk_window_maximize(window_.get());
  }
}

void EditorWindowController::saveFrame() {
  // GTK keeps the default size in step with the user's resizing, and keeps
  // the size from before maximizing while the window is maximized.
  WindowFrame frame;
  gtk_window_get_default_size(window_.get(), &frame.width, &frame.height);
  frame.maximized = gtk_window_is_maximized(window_.get()) != FALSE;
  UserDefaults(UserDefaults::standardPath())
      .setWindowFrame(UserDefaults::kWindowAutosaveName, frame);
}

}  // namespace vorna::app
